// SPDX-License-Identifier: MIT
#include "companionclients/webbrowser.h"

#include "base/neighbor.h"
#include "companions/common/customerscreen.h"

#include <QDebug>
#include <QFile>
#include <QWebSocket>
#include <sys/stat.h>

namespace {

constexpr int browserWaitMs = 30000;

/// The browser's profile, which must be this user's: whoever owns it decides what the browser does.
QString profileFolder()
{
    return QStringLiteral("/tmp/veltrobrowser12345");
}

bool makeProfileFolder()
{
    ::mkdir(QFile::encodeName(profileFolder()).constData(), 0700);
    const QString squatter = base::squatterProblem(profileFolder());
    if (!squatter.isEmpty()) {
        qCritical().noquote() << "companion: the browser isn't started:" << squatter;
    }
    return squatter.isEmpty();
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
        qDebug() << "companion: showing the page on screen" << screen;
        arguments << QStringLiteral("--kiosk")
                  << QStringLiteral("--window-position=%1,0").arg(screens[screen].left());
    }
    return arguments
        << QStringLiteral("--window-size=%1,%2").arg(pageSize.width()).arg(pageSize.height())
        << QStringLiteral("--new-window") << url
        << QStringLiteral("--user-data-dir=") + profileFolder() << QStringLiteral("--no-first-run")
        << QStringLiteral("--no-default-browser-check") << QStringLiteral("--no-announcement");
}

void WebBrowser::openURL(const QString &url, const QString &data)
{
    closeURL();
    m_pageData = data;
    const QStringList line = arguments(url, screenGeometries(), m_settings.padsize);
    qDebug() << line;
    if (!makeProfileFolder()) {
        return;
    }
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
