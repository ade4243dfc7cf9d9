// SPDX-License-Identifier: MIT
#pragma once

#include "companions/common/framereader.h"

#include <QLocalServer>
#include <QObject>
#include <QPointer>

QT_FORWARD_DECLARE_CLASS(QLocalSocket)

/**
 * The companion's end of the local socket: receives the server's requests and sends replies to the
 * client, which is the connection that sent the latest request.
 *
 * A connection becomes the client with its first complete request; the previous client is then
 * disconnected. Connecting alone changes nothing: the server connects and disconnects once at its
 * start, and a second instance of a companion probes the first.
 *
 * Only the companion's own user can be a client: the permissions of the socket file keep others
 * out, and whoever gets past them, as root does, is refused with a log line. Use it on the thread
 * that created it, which needs an event loop.
 */
class RequestServer : public QObject
{
    Q_OBJECT

public:
    enum class Start {
        Listening,
        AnotherRuns, ///< another instance is listening: nothing was changed
        Failed, ///< can't listen, or the socket file is another user's; the log gives the reason
    };

    /**
     * \param name         of the local socket; without a path, in the folder for temporary files
     *                     (TMPDIR or /tmp)
     * \param partsOfType  see FrameReader
     */
    RequestServer(const QString &name, const QMap<int, int> &partsOfType,
                  QObject *parent = nullptr);
    ~RequestServer() override;

    /**
     * Starts listening; a stale socket file is removed. Of instances started at the same moment
     * exactly one listens.
     */
    Start start();

    /**
     * Sends bytes to the client; they are written while the event loop runs.
     * \return false if it has disconnected
     */
    bool reply(const QByteArray &bytes);

Q_SIGNALS:
    /// A complete request has arrived.
    void request(int type, const QList<QByteArray> &parts);

    /// The client has disconnected, or was disconnected for a malformed request.
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
