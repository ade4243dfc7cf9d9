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
 * Main thread only. Starting a companion blocks it, for up to a minute and a half if the companion
 * does not come up.
 */
class CompanionClient : public QObject
{
    Q_OBJECT

public:
    /// Timeouts and pauses; tests shorten them.
    struct Waits
    {
        std::chrono::milliseconds connect{30000}; ///< timeout of each attempt to connect
        std::chrono::milliseconds write{30000}; ///< timeout of writing a request
        std::chrono::milliseconds read{100}; ///< timeout of each wait for more of a reply
        std::chrono::milliseconds pause{2000}; ///< after disconnecting, and between attempts
        std::chrono::milliseconds settle{
            300}; ///< between starting the browser helper and connecting
    };

    void setWaits(const Waits &waits) { m_waits = waits; }

    bool isConnected() const { return m_socket.state() == QLocalSocket::ConnectedState; }

protected:
    /**
     * Connects to the socket once and disconnects again.
     * \param script  file name of the start script, in the program's folder
     */
    CompanionClient(const QString &socketName, const QString &script);

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
    Waits m_waits;

private:
    bool tryToConnect();

    const QString m_socketName;
    const QString m_scriptPath;
};
