// SPDX-License-Identifier: MIT
#include "log/qlogtonet.h"

#include <QHostAddress>
#include <QList>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>

#include <mutex>

struct QLogToNet::Record
{
    std::mutex mutex;
    QTcpServer *server = nullptr; // child of the QLogToNet, parent of the clients
    QList<QTcpSocket *> clients; // guarded by mutex
};

QLogToNet::QLogToNet(unsigned short port, QObject *parent)
    : QObject(parent)
    , m_record(std::make_unique<Record>())
{
    m_record->server = new QTcpServer(this);
    connect(m_record->server, &QTcpServer::newConnection, this, &QLogToNet::acceptClients);
    if (m_record->server->listen(QHostAddress::AnyIPv4, port)) {
        // In a thread without an event dispatcher, such as a device library's, the server is bound
        // but does not accept. This runs in the thread that it is moved to.
        QMetaObject::invokeMethod(m_record->server, &QTcpServer::resumeAccepting,
                                  Qt::QueuedConnection);
    }
}

QLogToNet::~QLogToNet()
{
    if (m_record->server->isListening()) {
        m_record->server->close();
    }
}

void QLogToNet::acceptClients()
{
    Q_ASSERT(QThread::currentThread() == thread());
    const std::lock_guard<std::mutex> lock(m_record->mutex);
    while (m_record->server->hasPendingConnections()) {
        QTcpSocket *client = m_record->server->nextPendingConnection();
        if (!client) {
            continue;
        }
        connect(client, &QTcpSocket::disconnected, this, &QLogToNet::removeClient);
        // Otherwise unread input would accumulate in the socket.
        connect(client, &QTcpSocket::readyRead, client,
                [client] { client->skip(client->bytesAvailable()); });
        m_record->clients.append(client);
    }
}

void QLogToNet::removeClient()
{
    Q_ASSERT(QThread::currentThread() == thread());
    const std::lock_guard<std::mutex> lock(m_record->mutex);
    if (auto *client = qobject_cast<QTcpSocket *>(sender())) {
        m_record->clients.removeAll(client);
        client->deleteLater();
    }
}

void QLogToNet::slot_toNet(const QString &message)
{
    Q_ASSERT(QThread::currentThread() == thread());
    // Writes without the mutex: a write to a listener that has gone calls removeClient().
    QList<QTcpSocket *> clients;
    {
        const std::lock_guard<std::mutex> lock(m_record->mutex);
        clients = m_record->clients;
    }
    const QByteArray bytes = message.toUtf8();
    for (QTcpSocket *client : qAsConst(clients)) {
        if (client->bytesToWrite() > maxWaitingBytes) {
            client->abort();
            continue;
        }
        client->write(bytes);
        client->flush();
    }
}
