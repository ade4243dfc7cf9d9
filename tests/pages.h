// SPDX-License-Identifier: MIT
#pragma once

#include <QSignalSpy>
#include <QStringList>
#include <QUrl>
#include <QWebSocket>
#include <QWebSocketServer>
#include <QtTest>

#include <memory>

/// A page as the server meets it: a WebSocket client that keeps the texts it was sent.
class Page
{
public:
    /// Connects and waits until it stands; isConnected() tells whether it does.
    explicit Page(quint16 port)
    {
        QObject::connect(&m_socket, &QWebSocket::textMessageReceived, &m_socket,
                         [this](const QString &text) { m_received << text; });
        QSignalSpy connected(&m_socket, &QWebSocket::connected);
        m_socket.open(QUrl(QStringLiteral("ws://127.0.0.1:%1").arg(port)));
        connected.wait();
    }

    bool isConnected() const { return m_socket.state() == QAbstractSocket::ConnectedState; }
    QWebSocket &socket() { return m_socket; }
    void send(const QString &text) { m_socket.sendTextMessage(text); }

    /// The texts that have come and that next() has not handed out.
    QStringList received() const { return m_received; }

    /// The next text, waited for; a null text when none comes.
    QString next()
    {
        const bool came = QTest::qWaitFor([this] { return !m_received.isEmpty(); }, 10000);
        return came ? m_received.takeFirst() : QString();
    }

    /// The next text that is no preview frame.
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

/// A page and the server's end of its connection, without a server around it.
class PagePair
{
public:
    PagePair()
    {
        m_server.listen(QHostAddress::LocalHost);
        m_page = std::make_unique<Page>(m_server.serverPort());
        if (!QTest::qWaitFor([this] { return m_server.hasPendingConnections(); }, 10000)) {
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
