// SPDX-License-Identifier: MIT
#include "companionclients/companionclient.h"

#include "base/clock.h"
#include "base/neighbor.h"

#include <QCoreApplication>
#include <QDebug>
#include <QProcess>

namespace {

/// After disconnecting, and between attempts to connect.
void pause()
{
    base::Clock::shared().sleepFor(std::chrono::seconds(2));
}

} // namespace

CompanionClient::CompanionClient(const QString &socketName, const QString &script)
    : m_socketName(socketName)
    , m_scriptPath(QCoreApplication::applicationDirPath() + QLatin1Char('/') + script)
{
    tryToConnect();
    m_socket.disconnectFromServer();
    m_socket.abort();
}

bool CompanionClient::tryToConnect()
{
    const QString squatter = base::squatterProblem(base::localSocketPath(m_socketName));
    if (!squatter.isEmpty()) {
        qCritical().noquote() << "companion: refusing" << m_socketName << "-" << squatter;
        return false;
    }
    m_socket.connectToServer(m_socketName, QIODevice::ReadWrite);
    return m_socket.waitForConnected(socketTimeoutMs) && isPeerTrusted();
}

/// Disconnects from a program of another user, who would get the requests and could answer them.
bool CompanionClient::isPeerTrusted()
{
    const QString problem = base::peerProblem(m_socket.socketDescriptor());
    if (problem.isEmpty()) {
        return true;
    }
    qCritical().noquote() << "companion: refusing the program on" << m_socketName << "-" << problem;
    m_socket.abort();
    return false;
}

void CompanionClient::closeConnection()
{
    if (!isConnected()) {
        return;
    }
    m_socket.disconnectFromServer();
    m_socket.abort();
}

void CompanionClient::closeConnectionForRestart()
{
    if (!isConnected()) {
        return;
    }
    closeConnection();
    pause();
}

void CompanionClient::launch()
{
    if (!QProcess::startDetached(QStringLiteral("/bin/bash"), {m_scriptPath})) {
        qWarning() << "companion: can't start /bin/bash" << m_scriptPath;
    }
}

bool CompanionClient::connectInThreeAttempts()
{
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (tryToConnect()) {
            return true;
        }
        qWarning() << "companion: no connection to" << m_socketName << "-" << m_socket.errorString()
                   << "- starting" << m_scriptPath << "again";
        pause();
        launch();
    }
    return false;
}

bool CompanionClient::writeNumber(int number)
{
    const qint32 bytes = number;
    return m_socket.write(reinterpret_cast<const char *>(&bytes), sizeof bytes) == sizeof bytes;
}
