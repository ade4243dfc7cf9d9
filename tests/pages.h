// SPDX-License-Identifier: MIT
#pragma once

#include "tests/waitfor.h"

#include <QStringList>
#include <QTcpSocket>
#include <QUrl>
#include <QWebSocket>
#include <QWebSocketServer>
#include <QtTest>

#include <memory>

/// A page: a WebSocket client that keeps the texts it receives.
class Page
{
public:
    /// Connects and waits for the connection; see isConnected().
    explicit Page(quint16 port)
    {
        QObject::connect(&m_socket, &QWebSocket::textMessageReceived, &m_socket,
                         [this](const QString &text) { m_received << text; });
        m_socket.open(QUrl(QStringLiteral("ws://127.0.0.1:%1").arg(port)));
        waitFor([this] {
            const auto state = m_socket.state();
            return state == QAbstractSocket::ConnectedState
                || state == QAbstractSocket::UnconnectedState;
        });
        if (auto *socket = m_socket.findChild<QTcpSocket *>()) {
            // Or the second of two texts would wait 40 ms for the acknowledgement of the first.
            socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        }
    }

    bool isConnected() const { return m_socket.state() == QAbstractSocket::ConnectedState; }
    QWebSocket &socket() { return m_socket; }
    void send(const QString &text) { m_socket.sendTextMessage(text); }

    /// The texts received and not yet taken with next().
    QStringList received() const { return m_received; }

    /// Waits for the next text; null if none comes.
    QString next()
    {
        const bool came = waitFor([this] { return !m_received.isEmpty(); });
        return came ? m_received.takeFirst() : QString();
    }

    /// Waits for the next text that is not a preview frame.
    QString nextReply()
    {
        QString text = next();
        while (text.startsWith(QLatin1String("/9j/"))) {
            text = next();
        }
        return text;
    }

private:
    QWebSocket m_socket;
    QStringList m_received;
};

/// A page and the server's end of its connection, without a server.
class PagePair
{
public:
    PagePair()
    {
        m_server.listen(QHostAddress::LocalHost);
        m_page = std::make_unique<Page>(m_server.serverPort());
        if (!waitFor([this] { return m_server.hasPendingConnections(); })) {
            qFatal("the page could not connect");
        }
        m_serverSide.reset(m_server.nextPendingConnection());
    }

    Page &page() { return *m_page; }
    QWebSocket *serverSide() { return m_serverSide.get(); }

private:
    QWebSocketServer m_server{QStringLiteral("test"), QWebSocketServer::NonSecureMode};
    std::unique_ptr<Page> m_page;
    std::unique_ptr<QWebSocket> m_serverSide;
};
