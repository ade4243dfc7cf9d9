// SPDX-License-Identifier: MIT
#include "transport/websocketservermanager.h"

#include "access/accesscontrol.h"
#include "base/logtext.h"
#include "camera/captureimgthread.h"
#include "camera/stoprecthread.h"
#include "companionclients/companionclient.h"
#include "companionclients/signsouthinterface.h"
#include "companionclients/webbrowser.h"
#include "dispatch/clientqueue.h"
#include "dispatch/commandfacts.h"
#include "dispatch/devicetext.h"
#include "dispatch/loggedtext.h"
#include "dispatch/messagerun.h"
#include "identity/facematchthread.h"
#include "identity/livingbodydetectthread.h"
#include "identity/readidcardthread.h"
#include "log/trace.h"
#include "transport/clientlink.h"
#include "transport/pagelistener.h"
#include "transport/pagesocket.h"

#include <QThread>
#include <QWebSocket>

#include <numeric>
#include <utility>

namespace {

QString clientKey(const QString &ip, int port)
{
    return QStringLiteral("%1-%2").arg(ip).arg(port);
}

/// The name alone: what isn't a known command may be anything, and hold anything.
QString commandName(const QString &text)
{
    if (text.isEmpty() || text[0] == QLatin1Char('#') || text[0] == QLatin1Char('@')) {
        return text.left(1);
    }
    const QString name = text.section(QLatin1Char('('), 0, 0);
    return commands::factsOf(name) ? name : QStringLiteral("(unknown)");
}

/// Without an early exit, so that the compiler can vectorize the loop.
bool isAscii(const QByteArray &text)
{
    const auto bytes = reinterpret_cast<const uchar *>(text.constData());
    const auto either = [](uchar one, uchar other) { return uchar(one | other); };
    return std::accumulate(bytes, bytes + text.size(), uchar(0), either) < 0x80;
}

} // namespace

WebSocketServerManager::WebSocketServerManager(QString serverName, QWebSocketServer::SslMode mode,
                                               QObject *parent)
    : QObject(parent)
    , m_serverName(std::move(serverName))
    , m_sslMode(mode)
    , m_messageRun(new MessageRun(this))
{
    connect(this, &WebSocketServerManager::send_recv_msg, m_messageRun, &MessageRun::recv_msg);
    broadcastMessagesOf(CaptureImgThread::instance());
    connect(CaptureImgThread::instance(), &CaptureImgThread::sig_frame, this,
            &WebSocketServerManager::slot_frame);
    broadcastMessagesOf(SignSouthInterface::instance());
    broadcastMessagesOf(ReadIdCardThread::instance());
    broadcastMessagesOf(FaceMatchThread::instance());
    broadcastMessagesOf(LivingBodyDetectThread::instance());
    broadcastMessagesOf(StopRecThread::instance());
    connect(this, &WebSocketServerManager::signal_thread_MessageReceived, this,
            &WebSocketServerManager::deliverForEachConnection);
    connect(this, &WebSocketServerManager::signal_thread_MessageReceived_binary, this,
            &WebSocketServerManager::deliverBinaryForEachConnection);
    m_messageRun->clientQueue()->setRun([this](QObject *client, const QString &text) {
        carryOut(static_cast<QWebSocket *>(client), text);
    });
}

template <class Worker> void WebSocketServerManager::broadcastMessagesOf(Worker *worker)
{
    connect(worker, &Worker::sig_msg, this, &WebSocketServerManager::slot_captureImgThread);
}

WebSocketServerManager::~WebSocketServerManager()
{
    if (m_server) {
        m_server->deleteLater();
    }
}

void WebSocketServerManager::websocke_server_start(QHostAddress address, quint16 port)
{
    if (m_running) {
        TRACE << "Failed to" << __func__ << "it's already running...";
        return;
    }
    if (!m_server) {
        m_server = new QWebSocketServer(m_serverName, m_sslMode, this);
        connect(m_server, &QWebSocketServer::newConnection, this,
                &WebSocketServerManager::slot_newConnection);
        connect(m_server, &QWebSocketServer::closed, this, &WebSocketServerManager::slot_closed);
        connect(m_server, &QWebSocketServer::serverError, this,
                &WebSocketServerManager::slot_serverError);
        m_listener = new PageListener(m_server, m_limits, this);
        connect(m_listener, &PageListener::tick, this, &WebSocketServerManager::checkTimes);
        m_listener->setAccess(m_access);
        m_messageRun->clientQueue()->setTurn(m_limits.turn);
        m_messageRun->clientQueue()->setFarewell(m_limits.farewell);
    }
    m_listenAddress = address;
    m_listenPort = port;
    QList<QHostAddress> addresses = listenAddresses(address);
    m_running = m_listener->start(addresses.takeFirst(), port);
    if (m_running) {
        for (const QHostAddress &further : qAsConst(addresses)) {
            m_listener->alsoListenOn(further);
        }
        qInfo() << "transport: listening on port" << m_listener->serverPort();
    } else {
        qWarning() << "transport: can't listen on port" << port << "-" << m_listener->errorString();
    }
}

/// The addresses of the policy; the handshake checks them again, for the policy may change.
QList<QHostAddress> WebSocketServerManager::listenAddresses(const QHostAddress &usual) const
{
    const accesspolicy::Policy *policy =
        m_access && m_access->isEnforcing() ? m_access->policy() : nullptr;
    if (!policy || policy->listensEverywhere) {
        return {usual};
    }
    QList<QHostAddress> addresses;
    if (policy->listensOnLoopback || policy->listenAddresses.isEmpty()) {
        addresses << QHostAddress::LocalHost << QHostAddress::LocalHostIPv6;
    }
    return addresses + policy->listenAddresses;
}

void WebSocketServerManager::websocke_server_stop()
{
    if (!m_running) {
        TRACE << "Failed to" << __func__ << ", it's not running...";
        return;
    }
    m_running = false;
    m_listener->stop();
    m_server->close();
}

quint16 WebSocketServerManager::port() const
{
    return m_running ? m_listener->serverPort() : quint16{0};
}

void WebSocketServerManager::slot_newConnection()
{
    QWebSocket *socket = m_server->nextPendingConnection();
    if (!socket) {
        return;
    }
    ++m_connections;
    socket->setParent(m_server);
    TRACE << socket->peerAddress().toString() << socket->peerPort()
          << (socket->peerAddress().isLoopback() ? "true" : "false") << socket->peerName();
    PageSocket *page = m_listener->takeSocketOf(socket);
    if (!page) { // it has gone within its handshake
        socket->deleteLater();
        return;
    }

    connect(socket, &QWebSocket::disconnected, this, &WebSocketServerManager::slot_disconnected);
    connect(socket, QOverload<QAbstractSocket::SocketError>::of(&QWebSocket::error), this,
            &WebSocketServerManager::slot_error);
    connect(socket, &QWebSocket::textMessageReceived, this,
            &WebSocketServerManager::slot_textMessageReceived);
    ClientQueue *queue = m_messageRun->clientQueue();
    connect(page, &PageSocket::frameTaken, queue, [queue, socket] { queue->run(socket); });
    connect(page, &PageSocket::goodbyeCame, this, [this, socket, page] { leave(socket, page); });
    // One that is refused has no commands any more.
    connect(page, &PageSocket::refused, this, [this, queue, socket, page](int closeCode) {
        queue->forget(socket);
        if (closeCode == QWebSocketProtocol::CloseCodeTooMuchData && m_access
            && m_access->isEnforcing() && page->visitor()) {
            m_access->noteRefusal(*page->visitor(), QStringLiteral("a text"),
                                  QStringLiteral("limits.message_kib"));
        }
        m_clients.remove(page->peer());
    });

    m_clients.insert(page->peer(), socket);
    auto *link = new ClientLink(socket, page, queue, m_limits);
    m_links.insert(socket, link);
    applyPolicyTo(link);
}

void WebSocketServerManager::setAccess(accesspolicy::AccessControl *access)
{
    m_access = access;
    connect(access, &accesspolicy::AccessControl::changed, this,
            &WebSocketServerManager::applyPolicy);
    applyPolicy();
}

void WebSocketServerManager::applyPolicy()
{
    const accesspolicy::Policy *policy = m_access->policy();
    CompanionClient::setReplyLimit(
        std::chrono::seconds(m_access->isEnforcing() ? policy->companionWaitSeconds : 0));
    const auto links = m_links; // pages that have to go leave the table
    for (ClientLink *link : links) {
        applyPolicyTo(link);
    }
}

/// Gives a page the limits of the policy; one that may not be connected any more has to go.
void WebSocketServerManager::applyPolicyTo(ClientLink *link)
{
    if (!m_access) {
        return;
    }
    Limits limits = m_limits;
    if (m_access->isEnforcing()) {
        const accesspolicy::Visitor *visitor = link->page()->visitor();
        if (!visitor || !m_access->mayStay(*visitor)) {
            link->page()->refuse(QWebSocketProtocol::CloseCodePolicyViolated,
                                 QStringLiteral("the access policy has changed"));
            return;
        }
        const accesspolicy::Policy *policy = m_access->policy();
        limits.message = quint64(policy->messageKiB) * 1024;
        limits.unreadMost = qint64(policy->pendingReplyMiB) * Limits::MiB;
        limits.unreadStalled = limits.unreadMost;
        limits.unreadWait = qMin(limits.unreadWait, limits.unreadMost);
    }
    link->page()->setLongestMessage(limits.message);
    link->setLimits(limits);
}

void WebSocketServerManager::slot_textMessageReceived(const QString &message)
{
    TRACE << LongText(loggedText(message));
    auto *socket = qobject_cast<QWebSocket *>(sender());
    ClientLink *link = m_links.value(socket);
    if (!link) {
        route(message, socket);
        return;
    }
    link->page()->noteText();
    link->noteText(message);
    m_messageRun->clientQueue()->push(socket, message);
    pauseOrResume(link);
}

/// Carries out one text of a page, at once or after it has waited.
void WebSocketServerManager::carryOut(QWebSocket *socket, const QString &message)
{
    ClientLink *link = m_links.value(socket);
    if (link && link->page()->isPaused() && link->page()->peerHasGone()) {
        socket->abort();
        return;
    }
    route(message, socket);
    checkUnread(socket);
    if (gpWebSocket != socket) {
        checkUnread(gpWebSocket);
    }
    if (ClientLink *remaining = m_links.value(socket)) {
        pauseOrResume(remaining);
    }
}

void WebSocketServerManager::route(const QString &message, QWebSocket *socket)
{
    if (m_access && m_access->isActive()) {
        routeByPolicy(message, socket);
        return;
    }
    deliver(message, socket);
}

/// Asks the policy; a page that is refused gets its answer, and doesn't become the current one.
void WebSocketServerManager::routeByPolicy(const QString &message, QWebSocket *socket)
{
    const ClientLink *link = m_links.value(socket);
    accesspolicy::Visitor *visitor = link ? link->page()->visitor() : nullptr;
    if (!visitor) { // has come before the policy, which enforces nothing yet
        if (!m_access->isEnforcing()) {
            deliver(message, socket);
        }
        return;
    }
    const auto passage = m_access->atText(*visitor, message);
    if (!passage.isOpen) {
        if (passage.answer) {
            socket->sendTextMessage(*passage.answer);
        }
        return;
    }
    if (passage.startsPreview) {
        m_previewOwner = socket;
    }
    deliver(passage.message, socket);
}

/// Carries a text out.
void WebSocketServerManager::deliver(const QString &message, QWebSocket *socket)
{
    if (message.startsWith(QLatin1Char('@'))) {
        WebBrowser::instance()->recvMessage(message, socket);
    } else if (message.startsWith(QLatin1Char('#'))) {
        MessageRun::send_msg(message.mid(1));
    } else {
        m_currentSocket = socket;
        if (!socket) {
            return;
        }
        gpWebSocket = socket;
        m_messageRun->recv_msg(message, socket);
    }
}

/// Reads no more from a page while many of its texts wait.
void WebSocketServerManager::pauseOrResume(ClientLink *link)
{
    const ClientQueue *queue = m_messageRun->clientQueue();
    QWebSocket *socket = link->page()->webSocket();
    const int texts = queue->waitingTexts(socket);
    link->page()->setPaused(texts > 0
                            && (texts >= m_limits.waitingTexts
                                || queue->waitingBytes(socket) >= m_limits.waitingBytes
                                || queue->waitingBytes() >= m_limits.waitingBytesOfAll));
}

void WebSocketServerManager::checkUnread(QWebSocket *socket)
{
    ClientLink *link = m_links.value(socket);
    if (!link) {
        return;
    }
    noteUnread(link);
    link->checkUnread();
    if (link->unread() > m_limits.unreadWait) {
        limitUnreadOfAll();
    }
}

/// Says once that a page leaves more unread than the policy has.
void WebSocketServerManager::noteUnread(ClientLink *link)
{
    const accesspolicy::Policy *policy = m_access ? m_access->policy() : nullptr;
    const accesspolicy::Visitor *visitor = link->page()->visitor();
    if (!policy || !visitor || link->unread() <= qint64(policy->pendingReplyMiB) * Limits::MiB) {
        m_unreadNoted.remove(link);
    } else if (!m_unreadNoted.contains(link)) {
        m_unreadNoted.insert(link);
        m_access->noteRefusal(*visitor, QStringLiteral("unread replies"),
                              QStringLiteral("limits.pending_reply_mib"));
    }
}

/// When all pages together leave too much unread, those that read nothing have to go.
void WebSocketServerManager::limitUnreadOfAll()
{
    qint64 total = 0;
    ClientLink *worst = nullptr;
    for (ClientLink *link : qAsConst(m_links)) {
        total += link->unread();
        if (link->stalledFor() > m_limits.unreadOfAllStall
            && (!worst || link->unread() > worst->unread())) {
            worst = link;
        }
    }
    if (total > m_limits.unreadOfAll && worst && worst->unread() > 0) {
        worst->page()->drop(QStringLiteral("all pages have %1 MiB unread, and it does not read")
                                .arg(total / Limits::MiB));
    }
}

void WebSocketServerManager::checkTimes()
{
    const auto links = m_links;
    for (ClientLink *link : links) { // deletes none at once
        noteUnread(link);
        link->checkTimes();
        pauseOrResume(link);
    }
    limitUnreadOfAll();
}

void WebSocketServerManager::slot_disconnected()
{
    TRACE;
    auto *socket = qobject_cast<QWebSocket *>(sender());
    if (!socket) {
        return;
    }
    ClientLink *link = m_links.value(socket);
    leave(socket, link ? link->page() : nullptr);
    gpWebSocket = nullptr; // no matter which page has left
    if (stopsPreviews(socket)) {
        stopPreviews();
    }
    m_links.remove(socket);
    m_unreadNoted.remove(link);
    if (link && m_clients.value(link->page()->peer()) == socket) {
        m_clients.remove(link->page()->peer());
    }
    socket->abort();
    socket->close(QWebSocketProtocol::CloseCodeNormal, QString());
    if (link) {
        link->page()->deleteWebSocketLater();
    }
}

void WebSocketServerManager::slot_closed()
{
    const auto clients = std::exchange(m_clients, {});
    for (QWebSocket *socket : clients) {
        socket->close(QWebSocketProtocol::CloseCodeNormal, QString());
    }
    stopPreviews();
    Q_EMIT signal_close();
}

/// What a page sent before it leaves is carried out; not what would take long.
void WebSocketServerManager::leave(QWebSocket *socket, PageSocket *page)
{
    const int dropped = m_messageRun->clientQueue()->leave(socket);
    if (dropped > 0 && page) {
        page->log(QStringLiteral("has left: %1 of its commands are dropped").arg(dropped));
    }
}

bool WebSocketServerManager::stopsPreviews(QWebSocket *leaving) const
{
    const bool byOwner = m_access && m_access->isEnforcing()
        && m_access->policy()->stopOnLeave == accesspolicy::Policy::Leaving::Owner;
    return !byOwner || !m_previewOwner || m_previewOwner == leaving;
}

/// A preview never outlives the page that started it. No client is current: the replies are lost.
void WebSocketServerManager::stopPreviews()
{
    Q_EMIT send_recv_msg(QStringLiteral("bStopPlay"), nullptr);
    Q_EMIT send_recv_msg(QStringLiteral("bStopPlay4"), nullptr);
}

void WebSocketServerManager::slot_error(QAbstractSocket::SocketError)
{
    if (auto *socket = qobject_cast<QWebSocket *>(sender())) {
        Q_EMIT signal_error(socket->peerAddress().toString(), socket->peerPort(),
                            socket->errorString());
    }
}

void WebSocketServerManager::slot_serverError(QWebSocketProtocol::CloseCode)
{
    // signal_error is for pages; errors of the listening socket only go to the log. A failed
    // listen() is logged by websocke_server_start().
    if (m_running) {
        m_listener->logRefusal(m_server->errorString());
    }
}

void WebSocketServerManager::slot_textFrameReceived(const QString &frame, bool isLastFrame)
{
    auto *socket = qobject_cast<QWebSocket *>(sender());
    if (!socket) {
        return;
    }
    TRACE << LongText(frame) << (isLastFrame ? "true" : "false");
    Q_EMIT signal_textFrameReceived(socket->peerAddress().toString(), socket->peerPort(), frame,
                                    isLastFrame);
}

void WebSocketServerManager::slot_captureImgThread(QByteArray byte)
{
    Q_ASSERT(QThread::currentThread() == thread());
    sendFrame(m_frame.links.size()); // no frame may follow the reply that ends the preview
    const QString message = QString::fromUtf8(upToNul(byte));
    const auto clients = m_clients; // writing to a page may remove it from the table
    for (QWebSocket *socket : clients) {
        socket->sendTextMessage(message);
    }
}

void WebSocketServerManager::slot_frame(const QByteArray &bytes)
{
    Q_ASSERT(QThread::currentThread() == thread());
    // First: its lock shows the thread sanitizer, which does not know Qt's, that the frame is
    // whole.
    const auto fetched = CaptureImgThread::instance()->fetchTimeOfFrame();
    const QByteArray text = upToNul(bytes);
    if (!isAscii(text)) { // not base64: sent like any text, which makes it valid UTF-8
        slot_captureImgThread(text);
        return;
    }
    sendFrame(m_frame.links.size()); // the rest of the one before
    const auto started = std::chrono::steady_clock::now();
    QByteArray &frame = m_frames[m_nextFrame++ % m_frames.size()];
    ClientLink::webSocketTextFrame(text, frame);
    m_frame.text = frame;
    m_frame.fetched = fetched;
    m_frame.sending = std::chrono::steady_clock::now() - started;
    m_frame.links.reserve(std::size_t(m_links.size()));
    for (ClientLink *link : qAsConst(m_links)) {
        m_frame.links.emplace_back(link);
    }
    sendFrame(pagesAtOnce);
}

/// Sends the frame to some more pages. Between them, commands are read and answered.
void WebSocketServerManager::sendFrame(std::size_t pages)
{
    if (m_frame.links.empty()) {
        return;
    }
    const auto started = std::chrono::steady_clock::now();
    for (; pages > 0 && !m_frame.links.empty(); --pages) {
        const QPointer<ClientLink> link = m_frame.links.back();
        m_frame.links.pop_back();
        if (link) {
            link->sendFrame(m_frame.text, m_frame.fetched);
        }
    }
    m_frame.sending += std::chrono::steady_clock::now() - started;
    if (!m_frame.links.empty()) {
        QMetaObject::invokeMethod(
            this, [this] { sendFrame(pagesAtOnce); }, Qt::QueuedConnection);
        return;
    }
    m_frame.text = QByteArray(); // whose memory is used again
    m_frameSending +=
        m_frameSending.count() == 0 ? m_frame.sending : (m_frame.sending - m_frameSending) / 16;
}

PagesStatus WebSocketServerManager::pages(int most) const
{
    PagesStatus pages;
    pages.count = m_links.size();
    pages.first.reserve(qMin(most, pages.count));
    for (auto each = m_links.cbegin(); each != m_links.cend(); ++each) {
        pages.bytesWaiting += each.value()->unread();
        if (pages.first.size() < most) {
            pages.first.append(pageStatus(each.key(), *each.value()));
        }
    }
    return pages;
}

PageStatus WebSocketServerManager::pageStatus(QWebSocket *socket, const ClientLink &link) const
{
    constexpr int longestOrigin = 256;
    PageStatus page;
    page.address = link.page()->peer();
    page.origin = base::oneLine(socket->origin().left(longestOrigin));
    page.framesSent = link.framesSent();
    page.framesDropped = link.framesDropped();
    const auto age = [&link](double share) {
        return std::chrono::duration<double, std::milli>(link.frameAges().quantile(share)).count();
    };
    page.frameAgeMs = age(0.5);
    page.oldestFrameMs = age(0.99);
    page.bytesWaiting = link.unread();
    page.textsWaiting = m_messageRun->clientQueue()->waitingTexts(socket);
    page.lastCommand = commandName(link.lastText());
    return page;
}

QWebSocket *WebSocketServerManager::client(const QString &ip, int port) const
{
    return m_clients.value(clientKey(ip, port));
}

void WebSocketServerManager::websocke_server_sendData(QString ip, int port, QString message)
{
    if (QWebSocket *socket = client(ip, port)) {
        socket->sendTextMessage(message);
    }
}

void WebSocketServerManager::websocke_server_sendData_binary(QString ip, int port, QByteArray data)
{
    if (QWebSocket *socket = client(ip, port)) {
        socket->sendBinaryMessage(data);
    }
}

void WebSocketServerManager::slot_thread_MessageReceived(const QString &message)
{
    if (m_currentSocket) {
        websocke_server_sendData(m_currentSocket->peerAddress().toString(),
                                 m_currentSocket->peerPort(), message);
    }
    TRACE << "thread send data..........";
}

void WebSocketServerManager::slot_thread_MessageReceived_binary(const QByteArray &data)
{
    if (m_currentSocket) {
        websocke_server_sendData_binary(m_currentSocket->peerAddress().toString(),
                                        m_currentSocket->peerPort(), data);
    }
    TRACE << "thread send data..........binary";
}

void WebSocketServerManager::deliverForEachConnection(const QString &message)
{
    for (quint64 i = 0, count = m_connections; i < count; ++i) {
        slot_thread_MessageReceived(message);
    }
}

void WebSocketServerManager::deliverBinaryForEachConnection(const QByteArray &data)
{
    for (quint64 i = 0, count = m_connections; i < count; ++i) {
        slot_thread_MessageReceived_binary(data);
    }
}
