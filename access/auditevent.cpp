// SPDX-License-Identifier: MIT
#include "access/auditevent.h"

namespace accesspolicy {

namespace {

constexpr int usualLength = 512;

} // namespace

AuditEvent::AuditEvent(const char *name)
{
    m_members.reserve(usualLength);
    m_members += "{\"event\":";
    append(name);
}

AuditEvent &AuditEvent::with(const char *key, const QString &value)
{
    begin(key);
    append(value.toUtf8()); // half a character becomes a question mark
    return *this;
}

AuditEvent &AuditEvent::with(const char *key, qint64 value)
{
    begin(key);
    m_members += QByteArray::number(value);
    return *this;
}

void AuditEvent::begin(const char *key)
{
    m_members += ",\"";
    m_members += key;
    m_members += "\":";
}

/// Appends a string of JSON (RFC 8259, section 7).
void AuditEvent::append(const QByteArray &utf8)
{
    m_members += '"';
    for (const char character : utf8) {
        if (character == '"' || character == '\\') {
            m_members += '\\';
            m_members += character;
        } else if (uchar(character) < 0x20) {
            m_members += "\\u00";
            m_members += QByteArray(1, character).toHex();
        } else {
            m_members += character;
        }
    }
    m_members += '"';
}

} // namespace accesspolicy
