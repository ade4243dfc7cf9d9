// SPDX-License-Identifier: MIT
#pragma once

#include "companionclients/configini.h"

#include <QObject>
#include <QProcess>
#include <QRect>
#include <QString>
#include <QStringList>
#include <QVector>

class QWebSocket;

/**
 * Shows a counter page in a browser that it starts itself, keeps the page's data and sends it to
 * the page on request. Created, together with `server.ini`, on first use. Main thread only.
 */
class WebBrowser : public QObject
{
    Q_OBJECT

public:
    static WebBrowser *instance();

    /// Shows a page, replacing the previous one. Blocks until the browser has started.
    void openURL(const QString &url, const QString &data);

    /// Terminates the browser and waits for it, for at most 30 s.
    void closeURL();

    /// Answers a text from a page that starts with "@" with the page data; ignores others.
    void recvMessage(QString message, QWebSocket *socket);

    /**
     * The browser's command line: with several screens, full screen on the smallest.
     * \param screens   geometry of each screen on the desktop, in pixels
     * \param pageSize  size of the window, in pixels
     */
    static QStringList arguments(const QString &url, const QVector<QRect> &screens,
                                 const QSize &pageSize);

private:
    WebBrowser() = default;

    ConfigIni m_settings;
    QProcess m_browser;
    QString m_pageData; // of the latest page; empty before the first
};
