// SPDX-License-Identifier: MIT
#pragma once

#include "companion/configini.h"

#include <QObject>
#include <QString>

class QWebSocket;

/**
 * Keeps the data of the counter page that was opened last, and hands it to the page when it asks.
 * Comes into being at the first question, and `server.ini` with it. Main thread only.
 */
class WebBrowser : public QObject
{
    Q_OBJECT

public:
    static WebBrowser *instance();

    /** A text from a page: one that begins with "@" is answered with the page data. */
    void recvMessage(QString message, QWebSocket *socket);

private:
    WebBrowser() = default;

    ConfigIni m_settings;
    QString m_pageData; // empty until a page was opened
};
