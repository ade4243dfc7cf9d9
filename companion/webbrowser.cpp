// SPDX-License-Identifier: MIT
#include "companion/webbrowser.h"

#include <QWebSocket>

WebBrowser *WebBrowser::instance()
{
    static WebBrowser browser;
    return &browser;
}

void WebBrowser::recvMessage(QString message, QWebSocket *socket)
{
    if (socket && message.startsWith(QLatin1Char('@')))
        socket->sendTextMessage(m_pageData);
}
