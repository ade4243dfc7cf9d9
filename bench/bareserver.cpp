// SPDX-License-Identifier: MIT
// The yardstick for start, memory and replies: what Qt alone takes for a server that answers each
// text "name()" with "Beginname".

#include <QCoreApplication>
#include <QWebSocket>
#include <QWebSocketServer>

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    QWebSocketServer server(QStringLiteral("bare"), QWebSocketServer::NonSecureMode);
    QObject::connect(&server, &QWebSocketServer::newConnection, [&server] {
        QWebSocket *page = server.nextPendingConnection();
        QObject::connect(page, &QWebSocket::textMessageReceived, [page](const QString &text) {
            page->sendTextMessage(QStringLiteral("Begin")
                                  + text.left(text.indexOf(QLatin1Char('('))));
        });
        QObject::connect(page, &QWebSocket::disconnected, page, &QObject::deleteLater);
    });
    return server.listen(QHostAddress::LocalHost, 1818) ? QCoreApplication::exec() : 1;
}
