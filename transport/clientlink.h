// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QObject>
#include <QQueue>

class QTcpSocket;
class QWebSocket;
class QWebSocketServer;

/**
 * What the server keeps about one page's connection beside its WebSocket: the way for preview
 * frames. A frame is put together once for all pages (webSocketTextFrame) and written straight to
 * each page's TCP socket: a third of the cost of sendTextMessage, which frames and copies for each.
 *
 * A page that does not read gets no more frames than frameLimit until it has taken one; nothing
 * piles up for it here. Other texts go by QWebSocket::sendTextMessage as ever; order is kept, for
 * both write to the same socket at once.
 *
 * Child of its WebSocket; main thread.
 */
class ClientLink : public QObject
{
    Q_OBJECT

public:
    /// How many frames may wait for a page that does not read.
    static constexpr int frameLimit = 2;

    /**
     * What the kernel may keep of a connection, in bytes (it takes twice as much): a few
     * frames. Its own choice, up to 4 MB, makes the preview of a slow page seconds old.
     */
    static constexpr int kernelBuffer = 384 * 1024;

    /**
     * Takes charge of a new connection of the server. Limits its kernel buffer, and switches
     * TCP_NODELAY on: without it a short reply behind a large frame waits for the page's
     * acknowledgement, up to 40 ms.
     */
    ClientLink(QWebSocket *socket, QWebSocketServer *server);

    /**
     * Sends a frame, or drops it when frameLimit are waiting or the connection is closing.
     * \param text   ASCII, the message itself
     * \param frame  the same as webSocketTextFrame makes it
     */
    void sendFrame(const QByteArray &text, const QByteArray &frame);

    /**
     * A text as one unmasked WebSocket text frame (RFC 6455, section 5.2), header and payload.
     * \param text    UTF-8
     * \param buffer  where it is put; its memory is used again when nobody else holds it
     */
    static void webSocketTextFrame(const QByteArray &text, QByteArray &buffer);

private:
    void forgetWritten(qint64 bytes);

    QWebSocket *const m_socket;
    QTcpSocket *const m_tcp; // below m_socket; null if Qt keeps it elsewhere
    qint64 m_written = 0; // bytes that have left, since the connection was last idle
    QQueue<qint64> m_waiting; // of each waiting frame: where it ends, counted like m_written
};
