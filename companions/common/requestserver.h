// SPDX-License-Identifier: MIT
#pragma once

#include "companions/common/framereader.h"

#include <QLocalServer>
#include <QObject>
#include <QPointer>

QT_FORWARD_DECLARE_CLASS(QLocalSocket)

/**
 * The companion's end of the local socket: requests of the server come in, replies go out to the
 * one client that sent the latest request.
 *
 * Whoever connects becomes the client with the first complete request, and the client before is
 * disconnected then. Connecting alone changes nothing: the server connects and leaves again at its
 * start, and a second instance of a companion probes the first.
 *
 * The socket is open to the companion's own user (and root). It belongs to the thread that made it,
 * which needs an event loop.
 */
class RequestServer : public QObject
{
    Q_OBJECT

public:
    enum class Start {
        Listening,
        AnotherRuns, ///< another instance answers: nothing was changed, end quietly
        Failed, ///< can't listen; the log tells why
    };

    /**
     * \param name         of the local socket; without a path it lies in the folder for temporary
     *                     files (TMPDIR, /tmp)
     * \param partsOfType  see FrameReader
     */
    RequestServer(const QString &name, const QMap<int, int> &partsOfType,
                  QObject *parent = nullptr);
    ~RequestServer() override;

    /**
     * Begins to listen. A socket file that nobody answers on is removed. Of instances that start
     * at the same moment one gets to listen.
     */
    Start start();

    /**
     * Writes bytes to the client of the latest request. They go out while the event loop runs.
     * \return false when it is gone
     */
    bool reply(const QByteArray &bytes);

Q_SIGNALS:
    /// A complete request has come.
    void request(int type, const QList<QByteArray> &parts);

    /// The client of the latest request has gone, or was disconnected for what it sent.
    void clientGone();

private:
    void takeConnections();
    void read(QLocalSocket *socket, FrameReader *reader);
    void makeClient(QLocalSocket *socket);
    void forget(QLocalSocket *socket);

    const QString m_name;
    const QMap<int, int> m_partsOfType;
    QLocalServer m_server;
    QList<QLocalSocket *> m_sockets; ///< owned by m_server; the oldest first
    QPointer<QLocalSocket> m_client; ///< of the latest request, while it is connected
};
