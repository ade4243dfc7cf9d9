// SPDX-License-Identifier: MIT
#include "transport/websocketservermanager.h"

#include "camera/captureimgthread.h"
#include "camera/stoprecthread.h"
#include "companionclients/signsouthinterface.h"
#include "companionclients/webbrowser.h"
#include "dispatch/devicetext.h"
#include "dispatch/messagerun.h"
#include "identity/facematchthread.h"
#include "identity/livingbodydetectthread.h"
#include "identity/readidcardthread.h"
#include "log/trace.h"
#include "transport/clientlink.h"

#include <QThread>
#include <QWebSocket>

#include <functional>
#include <numeric>
#include <utility>

namespace {

/**
 * Longest text of a page, in bytes; a page that sends a longer one is disconnected. Documents in
 * base64 are far below this; more would use up the machine's memory.
 */
constexpr quint64 maxMessageBytes = 256 * 1024 * 1024;

QString clientKey(const QString &ip, int port)
{
    return QStringLiteral("%1-%2").arg(ip).arg(port);
}

QString clientKey(const QWebSocket *socket)
{
    return clientKey(socket->peerAddress().toString(), socket->peerPort());
}

/// Without an early exit, so that the compiler can vectorize the loop.
bool isAscii(const QByteArray &text)
{
    const auto bytes = reinterpret_cast<const uchar *>(text.constData());
    return std::accumulate(bytes, bytes + text.size(), 0U, std::bit_or<>()) < 0x80;
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
    }
    m_listenAddress = address;
    m_listenPort = port;
    m_running = m_server->listen(address, port);
    if (m_running) {
        qInfo() << "transport: listening on port" << m_server->serverPort();
    } else {
        qWarning() << "transport: can't listen on port" << port << "-" << m_server->errorString();
    }
}

void WebSocketServerManager::websocke_server_stop()
{
    if (!m_running) {
        TRACE << "Failed to" << __func__ << ", it's not running...";
        return;
    }
    m_running = false;
    m_server->close();
}

quint16 WebSocketServerManager::port() const
{
    return m_running ? m_server->serverPort() : quint16{0};
}

void WebSocketServerManager::slot_newConnection()
{
    QWebSocket *socket = m_server->nextPendingConnection();
    if (!socket) {
        return;
    }
    socket->setParent(m_server);
#if QT_VERSION >= QT_VERSION_CHECK(5, 15, 0)
    socket->setMaxAllowedIncomingFrameSize(maxMessageBytes);
    socket->setMaxAllowedIncomingMessageSize(maxMessageBytes);
#endif
    TRACE << socket->peerAddress().toString() << socket->peerPort()
          << (socket->peerAddress().isLoopback() ? "true" : "false") << socket->peerName();

    connect(socket, &QWebSocket::disconnected, this, &WebSocketServerManager::slot_disconnected);
    connect(socket, QOverload<QAbstractSocket::SocketError>::of(&QWebSocket::error), this,
            &WebSocketServerManager::slot_error);
    connect(socket, &QWebSocket::textMessageReceived, this,
            &WebSocketServerManager::slot_textMessageReceived);
    // Connected once more for every page, so a message goes out as often as pages ever connected.
    // Existing users of these signals rely on it.
    connect(this, &WebSocketServerManager::signal_thread_MessageReceived, this,
            &WebSocketServerManager::slot_thread_MessageReceived);
    connect(this, &WebSocketServerManager::signal_thread_MessageReceived_binary, this,
            &WebSocketServerManager::slot_thread_MessageReceived_binary);

    m_clients.insert(clientKey(socket), socket);
    m_links.insert(socket, new ClientLink(socket, m_server));
}

void WebSocketServerManager::slot_textMessageReceived(const QString &message)
{
    TRACE << message;
    auto *socket = qobject_cast<QWebSocket *>(sender());
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

void WebSocketServerManager::slot_disconnected()
{
    TRACE;
    auto *socket = qobject_cast<QWebSocket *>(sender());
    if (!socket) {
        return;
    }
    gpWebSocket = nullptr; // no matter which page has left
    stopPreviews();
    m_clients.remove(m_clients.key(socket));
    m_links.remove(socket);
    socket->abort();
    socket->close(QWebSocketProtocol::CloseCodeNormal, QString());
    socket->deleteLater();
}

void WebSocketServerManager::slot_closed()
{
    const auto clients = std::exchange(m_clients, {});
    m_links.clear();
    for (QWebSocket *socket : clients) {
        socket->close(QWebSocketProtocol::CloseCodeNormal, QString());
    }
    stopPreviews();
    Q_EMIT signal_close();
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
        qWarning() << "transport:" << m_server->errorString();
    }
}

void WebSocketServerManager::slot_textFrameReceived(const QString &frame, bool isLastFrame)
{
    auto *socket = qobject_cast<QWebSocket *>(sender());
    if (!socket) {
        return;
    }
    TRACE << frame << (isLastFrame ? "true" : "false");
    Q_EMIT signal_textFrameReceived(socket->peerAddress().toString(), socket->peerPort(), frame,
                                    isLastFrame);
}

void WebSocketServerManager::slot_captureImgThread(QByteArray byte)
{
    Q_ASSERT(QThread::currentThread() == thread());
    const QString message = QString::fromUtf8(upToNul(byte));
    const auto clients = m_clients; // writing to a page may remove it from the table
    for (QWebSocket *socket : clients) {
        socket->sendTextMessage(message);
    }
}

void WebSocketServerManager::slot_frame(const QByteArray &bytes)
{
    Q_ASSERT(QThread::currentThread() == thread());
    const QByteArray text = upToNul(bytes);
    if (!isAscii(text)) { // not base64: sent like any text, which makes it valid UTF-8
        slot_captureImgThread(text);
        return;
    }
    QByteArray &frame = m_frames[m_nextFrame++ % m_frames.size()];
    ClientLink::webSocketTextFrame(text, frame);
    const auto links = m_links;
    for (ClientLink *link : links) {
        link->sendFrame(text, frame);
    }
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
