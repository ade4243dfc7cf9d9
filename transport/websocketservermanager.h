// SPDX-License-Identifier: MIT
#pragma once

#include "base/clock.h"
#include "transport/limits.h"
#include "transport/pagestatus.h"

#include <QAbstractSocket>
#include <QHash>
#include <QHostAddress>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QWebSocket>
#include <QWebSocketProtocol>
#include <QWebSocketServer>

#include <array>
#include <chrono>
#include <vector>

namespace accesspolicy {
class AccessControl;
}
class ClientLink;
class MessageRun;
class PageListener;
class PageSocket;

/**
 * The server's endpoint: accepts pages, keeps the table of their connections, routes what they
 * send, and broadcasts the messages of workers and companions.
 *
 * Main thread only. Apart from this class, only MessageRun::send_msg writes to a page's socket.
 */
class WebSocketServerManager : public QObject
{
    Q_OBJECT

public:
    /**
     * Creates the dispatcher and connects the workers' messages, which creates the workers. Does
     * not listen yet.
     */
    WebSocketServerManager(QString serverName, QWebSocketServer::SslMode mode,
                           QObject *parent = nullptr);
    ~WebSocketServerManager() override;

    /// Replaces the limits on what pages may take; before the first start.
    void setLimits(const Limits &limits) { m_limits = limits; }

    /// Has an access policy decide on pages and their texts; before the first start.
    void setAccess(accesspolicy::AccessControl *access);

    /**
     * Starts listening; if it is already running, only writes a debug line. If it can't listen,
     * running() stays false and a log line gives the reason.
     */
    void websocke_server_start(QHostAddress address, quint16 port);

    /// Stops listening and closes all connections; if not running, only writes a debug line.
    void websocke_server_stop();

    /// Whether the server listens.
    bool running() const { return m_running; }

    /// The port listened on, 0 if not running; useful after a start at port 0.
    quint16 port() const;

    /// The pages that are connected now, and what they were sent: all in sum, `most` one by one.
    PagesStatus pages(int most) const;

    /// Running mean of the time that it takes to send a preview frame to all pages.
    std::chrono::nanoseconds frameSending() const { return m_frameSending; }

    /// The dispatcher, owned by this object.
    MessageRun *dispatcher() const { return m_messageRun; }

    /// Sends to the page at this address and port; does nothing if there is none.
    void websocke_server_sendData(QString ip, int port, QString message);
    void websocke_server_sendData_binary(QString ip, int port, QByteArray data);

Q_SIGNALS:
    // For users of this class. Of these, only signal_error, signal_textFrameReceived, signal_close
    // and send_recv_msg are ever emitted.
    void signal_conncted(QString ip, int port);
    void signal_disconncted(QString ip, int port);
    void signal_sendTextMessageResult(QString ip, quint32 port, bool result);
    void signal_sendBinaryMessageResult(QString ip, quint32 port, bool result);
    void signal_error(QString ip, quint32 port, QString errorString);
    void signal_textFrameReceived(QString ip, quint32 port, QString frame, bool isLastFrame);
    void signal_textMessageReceived(QString ip, quint32 port, QString message);
    void signal_close();
    /// Lets any thread send to the current page; see slot_thread_MessageReceived().
    void signal_thread_MessageReceived(const QString &message);
    void signal_thread_MessageReceived_binary(const QByteArray &data);
    /// A command text for the dispatcher; the page that sent it, or null for the server itself.
    void send_recv_msg(QString message, QWebSocket *);

public Q_SLOTS:
    void slot_newConnection();
    void slot_serverError(QWebSocketProtocol::CloseCode closeCode);
    void slot_closed();
    void slot_disconnected();
    void slot_error(QAbstractSocket::SocketError error);
    void slot_textFrameReceived(const QString &frame, bool isLastFrame);
    /// Routes one text of a page: "@" to the counter pages, "#" to the current page, a command.
    void slot_textMessageReceived(const QString &message);
    void slot_thread_MessageReceived(const QString &message);
    void slot_thread_MessageReceived_binary(const QByteArray &data);
    /// Broadcasts a worker's late result to every page.
    void slot_captureImgThread(QByteArray byte);
    /// Broadcasts a preview frame; pages that do not read miss it.
    void slot_frame(const QByteArray &bytes);

private:
    /// A preview frame that is being sent to one page after the other.
    struct Frame
    {
        QByteArray text;
        base::Clock::TimePoint fetched;
        std::vector<QPointer<ClientLink>> links; // that still have to get it
        std::chrono::nanoseconds sending{}; // time it has taken so far
    };
    /// Pages that get a frame before a command is looked at, which would wait for all of them.
    static constexpr std::size_t pagesAtOnce = 2;

    void sendFrame(std::size_t pages);
    template <class Worker> void broadcastMessagesOf(Worker *worker);
    QWebSocket *client(const QString &ip, int port) const;
    PageStatus pageStatus(QWebSocket *socket, const ClientLink &link) const;
    void stopPreviews();
    void leave(QWebSocket *socket, PageSocket *page);
    void carryOut(QWebSocket *socket, const QString &message);
    void route(const QString &message, QWebSocket *socket);
    void deliver(const QString &message, QWebSocket *socket);
    void routeByPolicy(const QString &message, QWebSocket *socket);
    void applyPolicy();
    QList<QHostAddress> listenAddresses(const QHostAddress &usual) const;
    void applyPolicyTo(ClientLink *link);
    void noteUnread(ClientLink *link);
    bool stopsPreviews(QWebSocket *leaving) const;
    void pauseOrResume(ClientLink *link);
    void checkUnread(QWebSocket *socket);
    void limitUnreadOfAll();
    void checkTimes();
    void deliverForEachConnection(const QString &message);
    void deliverBinaryForEachConnection(const QByteArray &data);

    QPointer<QWebSocket> m_currentSocket; // sent the latest command
    QString m_serverName;
    QWebSocketServer::SslMode m_sslMode;
    bool m_running = false; // result of the last listen()
    QWebSocketServer *m_server = nullptr;
    QHash<QString, QWebSocket *> m_clients; // by "address-port"
    QHostAddress m_listenAddress;
    quint16 m_listenPort = 1818;
    MessageRun *m_messageRun;

    Limits m_limits;
    accesspolicy::AccessControl *m_access = nullptr;
    QPointer<QWebSocket> m_previewOwner; // sent the latest command that starts a preview
    QSet<ClientLink *> m_unreadNoted; // links of which it was said that they have too much unread
    PageListener *m_listener = nullptr; // created with m_server
    // A message of the signal_thread_... signals goes out once for every page that ever connected:
    // existing users of these signals rely on it.
    quint64 m_connections = 0;
    QHash<QWebSocket *, ClientLink *> m_links; // of all open connections
    std::array<QByteArray, 4> m_frames; // reused in turn; those being written are still shared
    std::size_t m_nextFrame = 0;
    Frame m_frame;
    std::chrono::nanoseconds m_frameSending{};
};
