// SPDX-License-Identifier: MIT
#include "companionclients/webbrowser.h"

#include "companions/common/customerscreen.h"

#include <QDebug>
#include <QWebSocket>

namespace {

constexpr int browserWaitMs = 30000;

} // namespace

WebBrowser *WebBrowser::instance()
{
    static WebBrowser browser;
    return &browser;
}

QStringList WebBrowser::arguments(const QString &url, const QVector<QRect> &screens,
                                  const QSize &pageSize)
{
    QStringList arguments;
    if (screens.size() >= 2) {
        const int screen = smallestScreen(screens);
        qDebug() << "companion: showing the page on screen" << screen;
        arguments << QStringLiteral("--kiosk")
                  << QStringLiteral("--window-position=%1,0").arg(screens[screen].left());
    }
    return arguments
        << QStringLiteral("--window-size=%1,%2").arg(pageSize.width()).arg(pageSize.height())
        << QStringLiteral("--new-window") << url
        << QStringLiteral("--user-data-dir=/tmp/veltrobrowser12345")
        << QStringLiteral("--no-first-run") << QStringLiteral("--no-default-browser-check")
        << QStringLiteral("--no-announcement");
}

void WebBrowser::openURL(const QString &url, const QString &data)
{
    closeURL();
    m_pageData = data;
    const QStringList line = arguments(url, screenGeometries(), m_settings.padsize);
    qDebug() << line;
    m_browser.start(m_settings.browser, line, QIODevice::ReadWrite);
    if (!m_browser.waitForStarted(browserWaitMs)) {
        qWarning() << "companion: can't start" << m_settings.browser << m_browser.errorString();
    }
}

void WebBrowser::closeURL()
{
    if (m_browser.state() == QProcess::NotRunning) {
        return;
    }
    m_browser.terminate();
    m_browser.waitForFinished(browserWaitMs);
    m_browser.close();
}

void WebBrowser::recvMessage(QString message, QWebSocket *socket)
{
    if (socket && message.startsWith(QLatin1Char('@'))) {
        socket->sendTextMessage(m_pageData);
    }
}
