// SPDX-License-Identifier: MIT
#include "companion/webbrowser.h"

#include <QDebug>
#include <QGuiApplication>
#include <QScreen>
#include <QWebSocket>

namespace {

constexpr int browserWaitMs = 30000;

QVector<QRect> screenGeometries()
{
    QVector<QRect> geometries;
    const auto screens = QGuiApplication::screens();
    for (const QScreen *screen : screens)
        geometries << screen->geometry();
    return geometries;
}

/// The one that is both narrower and lower than those before it.
int smallestScreen(const QVector<QRect> &screens)
{
    int smallest = 0;
    for (int i = 1; i < screens.size(); ++i) {
        if (screens[i].width() < screens[smallest].width()
            && screens[i].height() < screens[smallest].height())
            smallest = i;
    }
    return smallest;
}

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
        qDebug() << "the page's screen:" << screen;
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
    if (!m_browser.waitForStarted(browserWaitMs))
        qWarning() << "companion: can't start" << m_settings.browser << m_browser.errorString();
}

void WebBrowser::closeURL()
{
    if (m_browser.state() == QProcess::NotRunning)
        return;
    m_browser.terminate();
    m_browser.waitForFinished(browserWaitMs);
    m_browser.close();
}

void WebBrowser::recvMessage(QString message, QWebSocket *socket)
{
    if (socket && message.startsWith(QLatin1Char('@')))
        socket->sendTextMessage(m_pageData);
}
