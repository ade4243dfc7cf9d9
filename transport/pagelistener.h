// SPDX-License-Identifier: MIT
#pragma once

#include "transport/limits.h"

#include <QSocketNotifier>
#include <QTcpServer>
#include <QTimer>

#include <memory>

class PageSocket;
class QWebSocket;
class QWebSocketServer;
struct PageSockets;

/**
 * Accepts the connections of pages and hands them, as PageSocket, to a QWebSocketServer for the
 * handshake. Watches what depends on time and on the number of connections: when the process runs
 * out of file descriptors, the connection that matters least makes room for a new one.
 *
 * Main thread only.
 */
class PageListener : public QTcpServer
{
    Q_OBJECT

public:
    /// \param server  makes the handshakes; it need not listen, and must outlive this object
    PageListener(QWebSocketServer *server, const Limits &limits, QObject *parent);
    ~PageListener() override;

    /// Listens like QTcpServer::listen(), with the backlog of the limits.
    bool start(const QHostAddress &address, quint16 port);

    /// Stops listening and ends the connections whose handshake is not done.
    void stop();

    const Limits &limits() const;

    /// File descriptors that the process has open.
    static quint64 openDescriptors();

    /// Logs that something from a page was refused, some lines a second.
    void logRefusal(const QString &line);

    /// Passes the TCP socket below a new WebSocket on to it, as its child; null if it has gone.
    PageSocket *takeSocketOf(QWebSocket *socket);

Q_SIGNALS:
    /// Time to look at what depends on time; only while there are connections.
    void tick();

protected:
    void incomingConnection(qintptr descriptor) override;

private:
    void acceptAll();
    bool nearLimit() const;
    bool makeRoom();
    void checkTimes();

    QWebSocketServer *const m_server;
    const std::shared_ptr<PageSockets> m_shared;
    QTimer m_tick;
    std::unique_ptr<QSocketNotifier> m_notifier; // disabled: accepting pauses until the next tick
};
