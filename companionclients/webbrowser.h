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
 * Shows a counter page in a browser that it starts itself, keeps the page's data, and hands them to
 * the page when it asks. Comes into being at the first use, and `server.ini` with it. Main thread.
 */
class WebBrowser : public QObject
{
    Q_OBJECT

public:
    static WebBrowser *instance();

    /// Shows a page in place of the one shown before. Blocks until the browser has started.
    void openURL(const QString &url, const QString &data);

    /// Ends the browser that was started here; waits for it, 30 s at most.
    void closeURL();

    /// A text from a page: one that begins with "@" is answered with the page data.
    void recvMessage(QString message, QWebSocket *socket);

    /**
     * The browser's command line: full screen on the smallest screen where there are several.
     * \param screens   where each lies on the desktop, in pixels
     * \param pageSize  of the window, in pixels
     */
    static QStringList arguments(const QString &url, const QVector<QRect> &screens,
                                 const QSize &pageSize);

private:
    WebBrowser() = default;

    ConfigIni m_settings;
    QProcess m_browser;
    QString m_pageData; // empty until a page was opened
};
