// SPDX-License-Identifier: MIT
#include "transport/framescanner.h"

#include <QWebSocketProtocol>
#include <QtEndian>

namespace {

constexpr uchar finBit = 0x80;
constexpr uchar reservedBits = 0x70;
constexpr uchar opcodeBits = 0x0F;
constexpr uchar controlBit = 0x08;
constexpr uchar maskBit = 0x80;
constexpr uchar lengthBits = 0x7F;

constexpr uchar closeOpcode = 8;
constexpr uchar lastDataOpcode = 2; // continuation 0, text 1, binary 2
constexpr uchar lastControlOpcode = 10; // close 8, ping 9, pong 10
constexpr uchar twoByteLength = 126;
constexpr uchar eightByteLength = 127;
constexpr int maskBytes = 4;

/// Why a frame with these first two bytes is none that a client may send; null if it may.
const char *protocolError(uchar first, uchar second)
{
    const uchar opcode = first & opcodeBits;
    const bool control = (opcode & controlBit) != 0;
    if ((second & maskBit) == 0) {
        return "the frame is not masked";
    }
    if ((first & reservedBits) != 0) {
        return "a reserved bit is set";
    }
    if (opcode > (control ? lastControlOpcode : lastDataOpcode)) {
        return "the opcode is reserved";
    }
    if (control && (first & finBit) == 0) {
        return "a control frame is fragmented";
    }
    if (control && (second & lengthBits) >= twoByteLength) {
        return "a control frame has more than 125 bytes";
    }
    return nullptr;
}

} // namespace

FrameScanner::Frame FrameScanner::look(const uchar *bytes, qint64 count) const
{
    Frame frame;
    if (count < 2) {
        return frame;
    }
    const auto refuse = [&frame](quint16 code, const char *reason) {
        frame.complete = true;
        frame.refusal = code;
        frame.reason = reason;
        return frame;
    };
    if (const char *error = protocolError(bytes[0], bytes[1])) {
        return refuse(QWebSocketProtocol::CloseCodeProtocolError, error);
    }

    quint64 payload = bytes[1] & lengthBits;
    const int lengthBytes = payload == twoByteLength ? 2 : payload == eightByteLength ? 8 : 0;
    const int header = 2 + lengthBytes + maskBytes;
    if (count < 2 + lengthBytes) {
        return frame;
    }
    if (lengthBytes == 2) {
        payload = qFromBigEndian<quint16>(bytes + 2);
    } else if (lengthBytes == 8) {
        payload = qFromBigEndian<quint64>(bytes + 2);
    }

    const uchar opcode = bytes[0] & opcodeBits;
    frame.control = (opcode & controlBit) != 0;
    frame.closes = opcode == closeOpcode;
    const quint64 before = opcode == 0 ? m_unfinished : 0;
    if (!frame.control && (payload > m_longest || before > m_longest - payload)) {
        return refuse(QWebSocketProtocol::CloseCodeTooMuchData, "the message is too long");
    }
    frame.complete = count >= header;
    frame.size = quint64(header) + payload;
    frame.message = before + payload;
    frame.endsMessage = (bytes[0] & finBit) != 0;
    return frame;
}

void FrameScanner::advance(const Frame &frame)
{
    if (!frame.control) {
        m_unfinished = frame.endsMessage ? 0 : frame.message;
    }
}
