// SPDX-License-Identifier: MIT
#pragma once

#include "transport/limits.h"

#include <QSocketNotifier>
#include <QTcpServer>
#include <QTimer>

#include <memory>
#include <vector>

namespace accesspolicy {
class AccessControl;
}
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

    /// Listens on another address too, on the same port; started, and not without a log line.
    void alsoListenOn(const QHostAddress &address);

    /// Stops listening and ends the connections whose handshake is not done.
    void stop();

    const Limits &limits() const;

    /// Sets whose policy decides on handshakes; it must outlive this object.
    void setAccess(accesspolicy::AccessControl *access) { m_access = access; }

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
    void acceptFrom(QTcpServer *server);
    void acceptAll(QSocketNotifier *notifier);
    void answerHandshake(PageSocket *page, const QByteArray &head);
    void makeHandshake(PageSocket *page);
    bool nearLimit() const;
    bool makeRoom();
    void checkTimes();

    QWebSocketServer *const m_server;
    const std::shared_ptr<PageSockets> m_shared;
    accesspolicy::AccessControl *m_access = nullptr;
    std::vector<std::unique_ptr<QTcpServer>> m_further; ///< On further addresses.
    QTimer m_tick;
    /// One for each address; disabled: accepting pauses until the next tick.
    std::vector<std::unique_ptr<QSocketNotifier>> m_notifiers;
};
