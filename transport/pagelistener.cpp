// SPDX-License-Identifier: MIT
#include "transport/pagelistener.h"

#include "access/accesscontrol.h"
#include "dispatch/messagerun.h"
#include "transport/pagesocket.h"

#include <QDebug>
#include <QDir>
#include <QWebSocket>
#include <QWebSocketServer>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <tuple>

namespace {

constexpr quint16 tryAgainLater = 1013; // IANA's registry of WebSocket close codes

/// Connections accepted in a row: what the others send has its turn.
constexpr int acceptedInARow = 64;

/// Descriptors that are left when it is time to count them.
constexpr quint64 worthCounting = 1000;

quint64 softDescriptorLimit()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) {
        return std::numeric_limits<quint64>::max();
    }
    return limit.rlim_cur;
}

} // namespace

PageListener::PageListener(QWebSocketServer *server, const Limits &limits, QObject *parent)
    : QTcpServer(parent)
    , m_server(server)
    , m_shared(std::make_shared<PageSockets>(limits))
{
    m_tick.setInterval(limits.tick);
    connect(&m_tick, &QTimer::timeout, this, &PageListener::checkTimes);
}

PageListener::~PageListener()
{
    qDeleteAll(findChildren<PageSocket *>(QString(), Qt::FindDirectChildrenOnly));
}

bool PageListener::start(const QHostAddress &address, quint16 port)
{
    if (!listen(address, port)) {
        return false;
    }
    acceptFrom(this);
    return true;
}

void PageListener::alsoListenOn(const QHostAddress &address)
{
    auto further = std::make_unique<QTcpServer>();
    if (further->listen(address, serverPort())) {
        acceptFrom(further.get());
        m_further.push_back(std::move(further));
    } else {
        qWarning().noquote() << "transport: can't listen on" << address.toString() << "-"
                             << further->errorString();
    }
}

/// Accepts what a server listens for, in its place.
void PageListener::acceptFrom(QTcpServer *server)
{
    const qintptr socket = server->socketDescriptor();
    // Qt's own is 50. On a socket that listens this only changes the number.
    ::listen(int(socket), limits().backlog);
    // QTcpServer's own loop keeps the first error for ever, EAGAIN too, and never tells of another.
    server->pauseAccepting();
    m_notifiers.push_back(std::make_unique<QSocketNotifier>(socket, QSocketNotifier::Read));
    QSocketNotifier *notifier = m_notifiers.back().get();
    connect(notifier, &QSocketNotifier::activated, this, [this, notifier] { acceptAll(notifier); });
}

void PageListener::stop()
{
    m_notifiers.clear();
    m_further.clear();
    close();
    const auto handshaking = findChildren<PageSocket *>(QString(), Qt::FindDirectChildrenOnly);
    for (PageSocket *page : handshaking) {
        page->abort();
    }
}

const Limits &PageListener::limits() const
{
    return m_shared->limits;
}

void PageListener::logRefusal(const QString &line)
{
    m_shared->log.write(line);
}

void PageListener::incomingConnection(qintptr descriptor)
{
    if (nearLimit() && !makeRoom()) {
        m_shared->log.write(QStringLiteral("a connection is refused: there is no room"));
        ::close(int(descriptor));
        return;
    }
    auto *page = new PageSocket(m_shared, descriptor, this);
    if (page->state() != QAbstractSocket::ConnectedState) {
        m_shared->log.write(QStringLiteral("a connection failed: %1").arg(page->errorString()));
        ::close(int(descriptor));
        delete page;
        return;
    }
    connect(page, &QTcpSocket::disconnected, page, [page] {
        if (!page->webSocket()) {
            page->deleteLater();
        }
    });
    if (!m_tick.isActive()) {
        m_tick.start();
    }
    if (m_access && m_access->isActive()) {
        page->awaitHead();
        connect(page, &PageSocket::headArrived, this,
                [this, page](const QByteArray &head) { answerHandshake(page, head); });
    } else {
        m_server->handleConnection(page);
    }
}

/// Lets a page in, or not, by the access policy.
void PageListener::answerHandshake(PageSocket *page, const QByteArray &head)
{
    if (m_access->isActive()) {
        const auto admission = m_access->atHandshake(head, page->localAddress(), page->peer());
        if (!admission.visitor) {
            page->refuseHandshake(admission.status);
            return;
        }
        page->admit(admission.visitor, admission.subprotocol);
    }
    makeHandshake(page);
}

/// Hands a page over whose handshake has arrived already.
void PageListener::makeHandshake(PageSocket *page)
{
    const qint64 available = page->bytesAvailable();
    m_server->handleConnection(page);
    // QWebSocketServer reads what has arrived already; should a version wait for a signal, here it
    // is.
    QTimer::singleShot(0, page, [page, available] {
        if (!page->webSocket() && page->bytesAvailable() == available) {
            Q_EMIT page->readyRead();
        }
    });
}

PageSocket *PageListener::takeSocketOf(QWebSocket *socket)
{
    const auto handshaking = findChildren<PageSocket *>(QString(), Qt::FindDirectChildrenOnly);
    for (PageSocket *page : handshaking) {
        if (page->state() == QAbstractSocket::ConnectedState
            && page->peerPort() == socket->peerPort()
            && page->peerAddress() == socket->peerAddress()) {
            // It would delete the socket on its own when it is disconnected.
            disconnect(page, &QTcpSocket::disconnected, m_server, nullptr);
            page->setWebSocket(socket);
            return page;
        }
    }
    return nullptr;
}

quint64 PageListener::openDescriptors()
{
    const QDir::Filters all = QDir::NoDotAndDotDot | QDir::AllEntries | QDir::System;
    return QDir(QStringLiteral("/proc/self/fd")).entryList(all).size() - 1; // that of the listing
}

bool PageListener::nearLimit() const
{
    const auto connections = quint64(m_shared->all.size());
    if (connections >= quint64(limits().connections)) {
        return true;
    }
    const quint64 most = limits().descriptors != 0 ? limits().descriptors : softDescriptorLimit();
    return connections + limits().descriptorReserve + worthCounting >= most
        && openDescriptors() + limits().descriptorReserve > most;
}

/**
 * Ends one connection: one that has never sent a text before one that has, and of these the one
 * that has been silent for longest; never the current page's.
 */
bool PageListener::makeRoom()
{
    const auto rank = [](const PageSocket *page) {
        return std::make_tuple(page->hasSentText() && !page->isRefused(), page->lastHeard());
    };
    PageSocket *least = nullptr;
    for (PageSocket *page : qAsConst(m_shared->all)) {
        if (page->state() != QAbstractSocket::UnconnectedState
            && (!page->webSocket() || page->webSocket() != gpWebSocket)
            && (!least || rank(page) < rank(least))) {
            least = page;
        }
    }
    if (!least) {
        return false;
    }
    least->drop(QStringLiteral("it makes room for another page"), tryAgainLater);
    return true;
}

void PageListener::acceptAll(QSocketNotifier *notifier)
{
    for (int i = 0; i < acceptedInARow; ++i) {
        const int descriptor =
            ::accept4(int(notifier->socket()), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        const int error = errno;
        if (descriptor >= 0) {
            incomingConnection(descriptor);
        } else if (error == EAGAIN || error == EWOULDBLOCK) {
            return;
        } else if (error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM) {
            m_shared->log.write(QStringLiteral("can't accept a connection: %1")
                                    .arg(QString::fromLocal8Bit(strerror(error))));
            if (!makeRoom()) {
                notifier->setEnabled(false);
                m_tick.start();
                return;
            }
        } // else: it has gone already
    }
}

void PageListener::checkTimes()
{
    const auto pages = m_shared->all;
    for (PageSocket *page : pages) {
        page->checkTimes(); // deletes none at once
    }
    Q_EMIT tick();
    m_shared->log.flush();
    bool wasPaused = false;
    for (const auto &notifier : m_notifiers) {
        wasPaused = wasPaused || !notifier->isEnabled();
        notifier->setEnabled(true);
    }
    if (!wasPaused && m_shared->all.isEmpty()) {
        m_tick.stop();
    }
}
