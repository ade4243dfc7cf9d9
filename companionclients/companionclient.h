// SPDX-License-Identifier: MIT
#pragma once

#include <QLocalSocket>
#include <QObject>
#include <QString>

#include <chrono>

/**
 * The client of a companion program: starts it with a script beside the server and connects to its
 * local socket. The program is started detached and never stopped from here.
 *
 * A program of another user on that socket is refused, with a log line that names the user.
 *
 * Main thread only. Starting a companion blocks it, for up to a minute and a half if the companion
 * does not come up.
 */
class CompanionClient : public QObject
{
    Q_OBJECT

public:
    /// Limits how long a companion may take to send a reply that it has begun; 0: it may for ever.
    static void setReplyLimit(std::chrono::seconds limit) { s_replyLimit = limit; }
    static std::chrono::seconds replyLimit() { return s_replyLimit; }

    bool isConnected() const { return m_socket.state() == QLocalSocket::ConnectedState; }

protected:
    /**
     * Connects to the socket once and disconnects again.
     * \param script  file name of the start script, in the program's folder
     */
    CompanionClient(const QString &socketName, const QString &script);

    /// Timeout of an attempt to connect, and of writing a request.
    static constexpr int socketTimeoutMs = 30000;

    /// Disconnects if connected.
    void closeConnection();

    /// The same before a new start, followed by a pause in which the service can end.
    void closeConnectionForRestart();

    /// Runs the start script, detached.
    void launch();

    /// Tries three times to connect; after each failure pauses and runs the script again.
    bool connectInThreeAttempts();

    /// Writes a number in the companions' format: 32 bits, native byte order.
    bool writeNumber(int number);

    QLocalSocket m_socket;

private:
    static inline std::chrono::seconds s_replyLimit{0};

    bool tryToConnect();
    bool isPeerTrusted();

    const QString m_socketName;
    const QString m_scriptPath;
};
