// SPDX-License-Identifier: MIT
#include "transport/pagelistener.h"

#include "access/accesscontrol.h"
#include "dispatch/messagerun.h"
#include "transport/pagesocket.h"

#include <QDebug>
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

/// After so many without a connection in between, accepting pauses: it must not take all the time.
constexpr int acceptErrorsInARow = 16;

quint64 softDescriptorLimit()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) {
        return std::numeric_limits<quint64>::max();
    }
    return limit.rlim_cur;
}

} // namespace

/// Accepts on a further address, for the listener that has all the rest.
class PageListener::Further : public QTcpServer
{
public:
    explicit Further(PageListener *owner)
        : m_owner(owner)
    {
        connect(this, &QTcpServer::acceptError, this, [this] {
            QTimer::singleShot(m_owner->limits().tick, this, [this] { resumeAccepting(); });
        });
    }

protected:
    void incomingConnection(qintptr descriptor) override
    {
        m_owner->incomingConnection(descriptor);
    }

private:
    PageListener *const m_owner;
};

PageListener::PageListener(QWebSocketServer *server, const Limits &limits, QObject *parent)
    : QTcpServer(parent)
    , m_server(server)
    , m_shared(std::make_shared<PageSockets>(limits))
{
    connect(this, &QTcpServer::acceptError, this, &PageListener::handleAcceptError);
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
    // Qt's own is 50. On a socket that listens this only changes the number.
    ::listen(int(socketDescriptor()), limits().backlog);
    return true;
}

void PageListener::alsoListenOn(const QHostAddress &address)
{
    auto further = std::make_unique<Further>(this);
    if (further->listen(address, serverPort())) {
        ::listen(int(further->socketDescriptor()), limits().backlog);
        m_further.push_back(std::move(further));
    } else {
        qWarning().noquote() << "transport: can't listen on" << address.toString() << "-"
                             << further->errorString();
    }
}

void PageListener::stop()
{
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
    m_acceptErrors = 0;
    if (nearLimit(descriptor) && !makeRoom()) {
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
    // It looks for what is there already; should a version not do so, it is told.
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

bool PageListener::nearLimit(qintptr descriptor) const
{
    if (m_shared->all.size() >= limits().connections) {
        return true;
    }
    // The kernel hands out the lowest free descriptor: a high one means that those below are used.
    const quint64 most = limits().descriptors != 0 ? limits().descriptors : softDescriptorLimit();
    return quint64(descriptor) + limits().descriptorReserve >= most;
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

/**
 * QTcpServer has paused itself. Whatever was wrong once, it says again from then on, also when
 * there is just no further connection to accept: what is wrong has to be found out here.
 */
void PageListener::handleAcceptError()
{
    const int spare = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (spare >= 0) {
        ::close(spare);
    } else {
        m_shared->log.write(QStringLiteral("can't accept a connection: %1")
                                .arg(QString::fromLocal8Bit(strerror(errno))));
    }
    if ((spare >= 0 || makeRoom()) && ++m_acceptErrors < acceptErrorsInARow) {
        resumeAccepting();
    } else {
        m_acceptLater = true;
        m_tick.start();
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
    if (m_acceptLater) {
        m_acceptLater = false;
        m_acceptErrors = 0;
        resumeAccepting();
    } else if (m_shared->all.isEmpty()) {
        m_tick.stop();
    }
}
