// SPDX-License-Identifier: MIT
#include "portable/card/apdu.h"

namespace portable {

namespace {

constexpr int maxParts = 16; // of one response: 4 KiB
constexpr int anyLength = 0; // expected length: up to 256 bytes

QByteArray encoded(const CardCommand &command, int expected, bool isT0)
{
    QByteArray bytes;
    for (const quint8 byte : {command.cla, command.ins, command.p1, command.p2}) {
        bytes += char(byte);
    }
    if (!command.data.isEmpty()) {
        bytes += char(command.data.size()) + command.data;
        if (isT0) {
            return bytes;
        }
    }
    return bytes + char(expected);
}

} // namespace

QString CardResponse::statusText() const
{
    return QStringLiteral("%1").arg(status, 4, 16, QLatin1Char('0')).toUpper();
}

CardChannel::CardChannel(CardConnection &connection, Clock::time_point deadline)
    : m_connection(connection)
    , m_deadline(deadline)
{
}

CardResponse CardChannel::send(const CardCommand &command)
{
    if (command.data.size() > 255) {
        return {};
    }
    CardResponse response = exchange(command, anyLength);
    if (response.status >> 8 == 0x6C) { // wrong length: repeat with the one it names
        response = exchange(command, response.status & 0xFF);
    }
    QByteArray data = response.data;
    for (int parts = 1; response.status >> 8 == 0x61; ++parts) { // more data is available
        if (parts == maxParts) {
            m_failure = QStringLiteral("its response doesn't end");
            return {};
        }
        response = exchange({0x00, 0xC0, 0x00, 0x00, {}}, response.status & 0xFF); // GET RESPONSE
        data += response.data;
    }
    response.data = data;
    return response;
}

CardResponse CardChannel::exchange(const CardCommand &command, int expected)
{
    if (m_failure.isEmpty() && Clock::now() > m_deadline) {
        m_failure = QStringLiteral("it takes too long");
    }
    if (!m_failure.isEmpty()) {
        return {};
    }
    QString error;
    const QByteArray bytes =
        m_connection.transmit(encoded(command, expected, m_connection.isT0()), &error);
    const int size = bytes.size() - 2;
    if (size < 0) {
        m_failure = error.isEmpty() ? QStringLiteral("its response is too short") : error;
        return {};
    }
    const auto byte = [&bytes](int place) { return quint8(bytes[place]); };
    return {bytes.left(size), byte(size) << 8 | byte(size + 1)};
}

CardResponse CardChannel::selectByName(const QByteArray &name)
{
    return send({0x00, 0xA4, 0x04, 0x00, name});
}

CardResponse CardChannel::selectFile(quint16 identifier)
{
    QByteArray bytes(1, char(identifier >> 8));
    bytes += char(identifier);
    return send({0x00, 0xA4, 0x00, 0x00, bytes});
}

CardResponse CardChannel::readRecord(int number, int shortFile)
{
    return send({0x00, 0xB2, quint8(number), quint8(shortFile << 3 | 4), {}});
}

CardResponse CardChannel::readRecordOfSelectedFile(int identifier)
{
    return send({0x00, 0xB2, quint8(identifier), 0x00, {}});
}

QByteArray readSerial(CardChannel &card, QString *error)
{
    const CardResponse response = card.send({0xFF, 0xCA, 0x00, 0x00, {}}); // GET DATA: UID
    if (!response.isOk()) {
        *error = card.failure().isEmpty()
            ? QStringLiteral("the reader doesn't give its serial number (%1)")
                  .arg(response.statusText())
            : card.failure();
        return {};
    }
    if (response.data.size() < 4 || response.data.size() > 10) {
        *error = QStringLiteral("its serial number has %1 bytes").arg(response.data.size());
        return {};
    }
    return response.data;
}

} // namespace portable
