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
    return with(key, value.toUtf8()); // half a character becomes a question mark
}

AuditEvent &AuditEvent::with(const char *key, const QByteArray &utf8)
{
    begin(key);
    append(utf8);
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
    int written = 0;
    for (int i = 0; i < utf8.size(); ++i) {
        const char character = utf8[i];
        const bool isControl = uchar(character) < 0x20;
        if (isControl || character == '"' || character == '\\') {
            m_members.append(utf8.constData() + written, i - written);
            m_members += isControl ? "\\u00" + QByteArray(1, character).toHex()
                                   : QByteArray(1, '\\') + character;
            written = i + 1;
        }
    }
    m_members.append(utf8.constData() + written, utf8.size() - written);
    m_members += '"';
}

} // namespace accesspolicy
