// SPDX-License-Identifier: MIT
#include "companions/common/requestserver.h"

#include "base/neighbor.h"

#include <QDebug>
#include <QLocalSocket>
#include <QLockFile>

#include <memory>

namespace {

constexpr int maxConnections = 8; // the client, and connections without a request so far
constexpr int probeWaitMs = 2000;
constexpr int lockWaitMs = 10000;

/// Whether a process listens on the socket, even one too busy to accept.
bool somebodyListens(const QString &name)
{
    QLocalSocket probe;
    probe.connectToServer(name);
    if (probe.waitForConnected(probeWaitMs)) {
        return true;
    }
    return probe.error() != QLocalSocket::ServerNotFoundError
        && probe.error() != QLocalSocket::ConnectionRefusedError;
}

} // namespace

RequestServer::RequestServer(const QString &name, const QMap<int, int> &partsOfType,
                             QObject *parent)
    : QObject(parent)
    , m_name(name)
    , m_partsOfType(partsOfType)
{
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    connect(&m_server, &QLocalServer::newConnection, this, &RequestServer::takeConnections);
}

RequestServer::~RequestServer()
{
    for (QLocalSocket *socket : qAsConst(m_sockets)) {
        socket->disconnect(this);
    }
}

RequestServer::Start RequestServer::start()
{
    // Another user who listens here would get the requests, and whoever owns the file can replace
    // it.
    const QString squatter = base::squatterProblem(base::localSocketPath(m_name));
    if (!squatter.isEmpty()) {
        qCritical().noquote() << "can't listen on" << m_name << "-" << squatter;
        return Start::Failed;
    }
    // No other instance may probe and listen in between.
    const QString lockPath = base::localSocketPath(m_name + QLatin1String(".lock"));
    const QString lockProblem = base::squatterProblem(lockPath);
    QLockFile lock(lockPath);
    if (!lockProblem.isEmpty()) {
        qWarning().noquote() << "can't lock" << m_name << "-" << lockProblem
                             << "- continuing without";
    } else if (!lock.tryLock(lockWaitMs)) {
        qWarning() << "can't lock" << m_name << "- continuing without";
    }
    if (somebodyListens(m_name)) {
        qInfo() << "another instance listens on" << m_name;
        return Start::AnotherRuns;
    }
    QLocalServer::removeServer(m_name);
    if (!m_server.listen(m_name)) {
        qWarning() << "can't listen on" << m_name << "-" << m_server.errorString();
        return Start::Failed;
    }
    qInfo() << "listening on" << m_server.fullServerName();
    return Start::Listening;
}

bool RequestServer::reply(const QByteArray &bytes)
{
    if (!m_client) {
        return false;
    }
    m_client->write(bytes);
    m_client->flush();
    return true;
}

void RequestServer::takeConnections()
{
    while (QLocalSocket *socket = m_server.nextPendingConnection()) {
        const QString problem = base::peerProblem(socket->socketDescriptor());
        if (!problem.isEmpty()) {
            qWarning().noquote() << "refusing a client on" << m_name << "-" << problem;
            socket->abort();
            socket->deleteLater();
            continue;
        }
        m_sockets << socket;
        const auto reader = std::make_shared<FrameReader>(m_partsOfType);
        connect(socket, &QLocalSocket::readyRead, this,
                [this, socket, reader] { read(socket, reader.get()); });
        connect(socket, &QLocalSocket::disconnected, this, [this, socket] { forget(socket); });
        if (m_sockets.size() > maxConnections) {
            m_sockets[m_sockets.first() == m_client ? 1 : 0]->abort();
        }
        if (socket->state() == QLocalSocket::ConnectedState) {
            read(socket, reader.get()); // what arrived before the signal was connected
        } else {
            forget(socket);
        }
    }
}

void RequestServer::read(QLocalSocket *socket, FrameReader *reader)
{
    const QList<Request> requests = reader->feed(socket->readAll());
    for (const Request &each : requests) {
        if (!m_sockets.contains(socket)) { // disconnected during the previous one
            return;
        }
        makeClient(socket);
        Q_EMIT request(each.type, each.parts);
    }
    if (!reader->error().isEmpty() && m_sockets.contains(socket)) {
        qWarning() << "disconnecting a client that sent" << reader->error();
        socket->abort();
    }
}

void RequestServer::makeClient(QLocalSocket *socket)
{
    if (m_client == socket) {
        return;
    }
    const QPointer<QLocalSocket> before = m_client;
    m_client = socket;
    if (before) {
        before->disconnectFromServer();
    }
}

void RequestServer::forget(QLocalSocket *socket)
{
    if (!m_sockets.removeOne(socket)) {
        return;
    }
    socket->deleteLater();
    if (m_client != socket) {
        return;
    }
    m_client.clear();
    Q_EMIT clientGone();
}
