// SPDX-License-Identifier: MIT
#include "companions/common/framereader.h"

#include <cstring>

FrameReader::FrameReader(const QMap<int, int> &partsOfType)
    : m_partsOfType(partsOfType)
{
}

QList<Request> FrameReader::feed(const QByteArray &bytes)
{
    QList<Request> complete;
    if (!m_error.isEmpty()) {
        return complete;
    }
    m_bytes += bytes;
    while (m_partsMissing > 0 ? takePart() : takeType()) {
        if (m_partsMissing == 0) {
            complete << m_request;
        }
    }
    m_bytes.remove(0, m_parsed); // once, however many requests there were
    m_parsed = 0;
    return complete;
}

bool FrameReader::peekNumber(int *number)
{
    qint32 value = 0;
    if (m_bytes.size() - m_parsed < int(sizeof value)) {
        return false;
    }
    std::memcpy(&value, m_bytes.constData() + m_parsed, sizeof value);
    *number = value;
    return true;
}

bool FrameReader::takeType()
{
    int type = 0;
    if (!peekNumber(&type)) {
        return false;
    }
    if (!m_partsOfType.contains(type)) {
        m_error = QStringLiteral("a request of the unknown type %1").arg(type);
        return false;
    }
    m_parsed += int(sizeof(qint32));
    m_request = Request{type, {}};
    m_partsMissing = m_partsOfType.value(type);
    return true;
}

bool FrameReader::takePart()
{
    constexpr int header = sizeof(qint32);
    int length = 0;
    if (!peekNumber(&length)) {
        return false;
    }
    if (length < 0 || length > maxPartSize) {
        m_error = QStringLiteral("a length of %1 bytes").arg(length);
        return false;
    }
    if (m_bytes.size() - m_parsed - header < length) {
        return false;
    }
    m_request.parts << m_bytes.mid(m_parsed + header, length);
    m_parsed += header + length;
    --m_partsMissing;
    return true;
}
