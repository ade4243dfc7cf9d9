// SPDX-License-Identifier: MIT
#pragma once

#include <QLocalSocket>
#include <QObject>
#include <QString>

#include <chrono>

/**
 * The client of a companion program: starts it by a script beside the server, and holds the
 * connection to its local socket. The program is started detached and never stopped from here.
 *
 * Main thread; starting blocks it, up to about a minute and a half with a companion that does not
 * come.
 */
class CompanionClient : public QObject
{
    Q_OBJECT

public:
    /// How long the client waits.
    struct Waits
    {
        std::chrono::milliseconds connect{30000}; ///< for a connection, each attempt
        std::chrono::milliseconds write{30000}; ///< for a request to be written
        std::chrono::milliseconds read{100}; ///< for more of a reply, each look
        std::chrono::milliseconds pause{2000}; ///< after leaving a service, between attempts
        std::chrono::milliseconds settle{300}; ///< between the browser helper's script and socket
    };

    /// Tests shorten the waits.
    void setWaits(const Waits &waits) { m_waits = waits; }

    bool isConnected() const { return m_socket.state() == QLocalSocket::ConnectedState; }

protected:
    /// Probes the socket once, and leaves it again. \param script  a name beside the program
    CompanionClient(const QString &socketName, const QString &script);

    /// Ends the connection if there is one.
    void leave();

    /// The same before a new start: gives the service a moment to end.
    void leaveForRestart();

    /// Starts the script.
    void launch();

    /// Three attempts to connect; after each that failed a pause and the script again.
    bool connectInThreeAttempts();

    /// Writes a number as the companions read it: 32 bits, native byte order.
    bool writeNumber(int number);

    QLocalSocket m_socket;
    Waits m_waits;

private:
    bool tryToConnect();

    const QString m_socketName;
    const QString m_scriptPath;
};
