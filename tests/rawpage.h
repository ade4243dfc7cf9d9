// SPDX-License-Identifier: MIT
#pragma once

#include "tests/pages.h"

#include <QTcpSocket>
#include <QtEndian>

/**
 * A page that sends any bytes, and does not read until asked to: a plain TCP client. Frames are
 * those of RFC 6455, section 5.2.
 */
class RawPage
{
public:
    static constexpr uchar fin = 0x80;
    static constexpr uchar text = 1;
    static constexpr uchar close = 8;
    static constexpr uchar ping = 9;

    /// Connects and asks for the handshake.
    explicit RawPage(quint16 port)
    {
        m_socket.setReadBufferSize(1); // or Qt would read in the background
        m_socket.setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, 4096);
        m_socket.connectToHost(QHostAddress::LocalHost, port);
        m_socket.write("GET / HTTP/1.1\r\nHost: localhost\r\nUpgrade: websocket\r\n"
                       "Connection: Upgrade\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"
                       "Sec-WebSocket-Version: 13\r\n\r\n");
    }

    /// The header of a frame with the mask 0, which leaves the payload as it is.
    static QByteArray header(uchar first, quint64 length)
    {
        QByteArray bytes(1, char(first));
        if (length < 126) {
            bytes += char(0x80 | length);
        } else if (length <= 0xFFFF) {
            bytes += char(0x80 | 126);
            bytes += bigEndian(quint16(length));
        } else {
            bytes += char(0x80 | 127);
            bytes += bigEndian(length);
        }
        return bytes + QByteArray(4, '\0');
    }

    static QByteArray frame(uchar first, const QByteArray &payload)
    {
        return header(first, quint64(payload.size())) + payload;
    }

    /// A whole text message.
    static QByteArray message(const QByteArray &payload) { return frame(fin | text, payload); }

    void write(const QByteArray &bytes) { m_socket.write(bytes); }

    /// Reads everything sent so far, up to a text that must come; empty if it doesn't.
    QByteArray readUpTo(const QByteArray &end)
    {
        m_socket.setReadBufferSize(0);
        QByteArray bytes;
        const bool came = waitFor([&] {
            bytes += m_socket.readAll();
            return bytes.indexOf(end, qMax(0, bytes.size() - (1 << 20))) >= 0;
        });
        return came ? bytes : QByteArray();
    }

    /// Reads until the server ends the connection; empty if it doesn't.
    QByteArray readToTheEnd()
    {
        m_socket.setReadBufferSize(0);
        QByteArray bytes;
        const bool ended = waitFor([&] {
            bytes += m_socket.readAll();
            return m_socket.state() == QAbstractSocket::UnconnectedState;
        });
        return ended ? bytes : QByteArray();
    }

    /// The code of the close frame at the end of what was read: the last one, 0 if there is none.
    static int closeCode(const QByteArray &bytes)
    {
        const int at = bytes.lastIndexOf(char(fin | close));
        return at < 0 || at + 4 > bytes.size()
            ? 0
            : qFromBigEndian<quint16>(bytes.constData() + at + 2);
    }

    QTcpSocket &socket() { return m_socket; }

private:
    template <class Number> static QByteArray bigEndian(Number number)
    {
        QByteArray bytes(int(sizeof number), '\0');
        qToBigEndian(number, bytes.data());
        return bytes;
    }

    QTcpSocket m_socket;
};
