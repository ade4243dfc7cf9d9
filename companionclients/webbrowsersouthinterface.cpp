// SPDX-License-Identifier: MIT
#include "companionclients/webbrowsersouthinterface.h"

#include "dispatch/devicetext.h"
#include "dispatch/messagerun.h"
#include "log/trace.h"

#include <QThread>
#include <QWebSocket>

#include <cstdio>

Webbrowsersouthinterface *Webbrowsersouthinterface::instance()
{
    static Webbrowsersouthinterface client;
    return &client;
}

Webbrowsersouthinterface::Webbrowsersouthinterface()
    : CompanionClient(QStringLiteral("SOUTHINTERFACE_BROWSER"), QStringLiteral("run-webbrowser.sh"))
{
    connect(&m_socket, &QLocalSocket::readyRead, this, &Webbrowsersouthinterface::slot_readyRead);
}

bool Webbrowsersouthinterface::start()
{
    closeConnectionForRestart();
    launch();
    QThread::msleep(ulong(m_waits.settle.count()));
    if (!connectInThreeAttempts()) {
        return false;
    }
    std::puts("start3");
    return true;
}

bool Webbrowsersouthinterface::openURL(const QString &url)
{
    return isConnected() && writeNumber(1) && writeText(url);
}

bool Webbrowsersouthinterface::openURL(const QString &url, const QString &data)
{
    return isConnected() && writeNumber(2) && writeText(url) && writeText(data);
}

bool Webbrowsersouthinterface::writeText(const QString &text)
{
    const QByteArray bytes = upToNul(text.toUtf8());
    if (!writeNumber(bytes.size())) {
        return false;
    }
    m_socket.write(bytes);
    return true;
}

void Webbrowsersouthinterface::slot_readyRead()
{
    if (gpWebSocket) {
        MessageRun::send_msg(QString::fromUtf8(upToNul(m_socket.readAll())));
    }
    TRACE << m_socket.readAll(); // nothing, unless no page is current
}
