// SPDX-License-Identifier: MIT
#include "companionclients/companionclient.h"

#include <QCoreApplication>
#include <QDebug>
#include <QProcess>
#include <QThread>

namespace {

int milliseconds(std::chrono::milliseconds time)
{
    return int(time.count());
}

void sleep(std::chrono::milliseconds time)
{
    QThread::msleep(ulong(time.count()));
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
    m_socket.connectToServer(m_socketName, QIODevice::ReadWrite);
    return m_socket.waitForConnected(milliseconds(m_waits.connect));
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
    sleep(m_waits.pause);
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
        sleep(m_waits.pause);
        launch();
    }
    return false;
}

bool CompanionClient::writeNumber(int number)
{
    const qint32 bytes = number;
    return m_socket.write(reinterpret_cast<const char *>(&bytes), sizeof bytes) == sizeof bytes;
}
