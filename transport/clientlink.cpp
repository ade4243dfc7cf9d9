// SPDX-License-Identifier: MIT
#include "transport/clientlink.h"

#include <QDebug>
#include <QTcpSocket>
#include <QThread>
#include <QWebSocket>
#include <QWebSocketServer>
#include <QtEndian>

#include <cstring>

namespace {

/// Finds the TCP socket that QWebSocket hides: a descendant of the server.
QTcpSocket *findTcpSocket(const QWebSocketServer *server, const QWebSocket *socket)
{
    const auto candidates = server->findChildren<QTcpSocket *>();
    for (QTcpSocket *candidate : candidates) {
        if (candidate->peerPort() == socket->peerPort()
            && candidate->peerAddress() == socket->peerAddress()) {
            return candidate;
        }
    }
    qWarning() << "transport: no TCP socket found for the page at port" << socket->peerPort()
               << "- its preview is slower, its replies may be delayed";
    return nullptr;
}

} // namespace

ClientLink::ClientLink(QWebSocket *socket, QWebSocketServer *server)
    : QObject(socket)
    , m_socket(socket)
    , m_tcp(findTcpSocket(server, socket))
{
    if (m_tcp) {
        m_tcp->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        m_tcp->setSocketOption(QAbstractSocket::SendBufferSizeSocketOption, kernelBuffer);
    }
    connect(socket, &QWebSocket::bytesWritten, this, &ClientLink::dequeueWritten);
}

void ClientLink::sendFrame(const QByteArray &text, const QByteArray &frame)
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (m_socket->state() != QAbstractSocket::ConnectedState) {
        return;
    }
    if (m_socket->bytesToWrite() == 0) {
        m_waiting.clear();
        m_written = 0;
    }
    if (m_waiting.size() >= frameLimit) {
        return;
    }
    if (m_tcp) {
        m_tcp->write(frame);
    } else {
        m_socket->sendTextMessage(QString::fromLatin1(text));
    }
    m_waiting.enqueue(m_written + m_socket->bytesToWrite());
    m_socket->flush(); // now, not after a turn of the event loop
}

void ClientLink::dequeueWritten(qint64 bytes)
{
    m_written += bytes;
    while (!m_waiting.isEmpty() && m_waiting.head() <= m_written) {
        m_waiting.dequeue();
    }
}

void ClientLink::webSocketTextFrame(const QByteArray &text, QByteArray &buffer)
{
    constexpr uchar finalText = 0x81; // FIN, opcode 1
    uchar header[10] = {finalText};
    int headerLength = 2;
    if (text.size() < 126) {
        header[1] = uchar(text.size());
    } else if (text.size() <= 0xFFFF) {
        header[1] = 126;
        qToBigEndian(quint16(text.size()), header + 2);
        headerLength = 4;
    } else {
        header[1] = 127;
        qToBigEndian(quint64(text.size()), header + 2);
        headerLength = 10;
    }
    if (!buffer.isDetached()) {
        buffer = QByteArray();
    }
    buffer.resize(headerLength + text.size());
    std::memcpy(buffer.data(), header, std::size_t(headerLength));
    std::memcpy(buffer.data() + headerLength, text.constData(), std::size_t(text.size()));
}
