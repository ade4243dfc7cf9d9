// SPDX-License-Identifier: MIT
#include "companions/browser/browserhelper.h"

#include "base/logtext.h"

#include <QDebug>

BrowserHelper::BrowserHelper(const Settings &settings, const Screens &screens,
                             const BrowserTimes &times)
    : m_settings(settings)
    , m_screens(screens)
    , m_window(times)
    , m_server(QStringLiteral("SOUTHINTERFACE_BROWSER"), {{1, 1}, {2, 2}})
{
    connect(&m_server, &RequestServer::request, this,
            [this](int, const QList<QByteArray> &parts) { show(parts); });
    connect(&m_server, &RequestServer::clientGone, this, [this] {
        m_window.close();
        qInfo() << "client disconnected, window closed";
        Q_EMIT idle();
    });
    connect(&m_window, &BrowserWindow::opened, this, [this] { reply("opened", m_page.shown()); });
    connect(&m_window, &BrowserWindow::failed, this,
            [this](const QString &why) { reply("failed", why); });
    connect(&m_window, &BrowserWindow::closed, this,
            [this](const QString &why) { reply("closed", why); });
}

void BrowserHelper::show(const QList<QByteArray> &parts)
{
    m_window.close(); // even if this request fails: the page shown belongs to an earlier one
    m_page = pageAddress(QString::fromUtf8(parts[0]));
    if (!m_page.refusal.isEmpty()) {
        reply("failed", m_page.refusal);
        return;
    }
    const bool hasData = parts.size() > 1;
    qInfo() << "request for" << base::withoutSecrets(m_page.shown()) << "with"
            << (hasData ? parts[1].size() : 0)
            << "bytes of data"; // which is the customer's and not logged
    m_window.open(hasData ? withData(m_page.url, QString::fromUtf8(parts[1]))
                          : m_page.url.toEncoded(),
                  m_screens(), m_settings());
}

void BrowserHelper::reply(const char *what, const QString &text)
{
    const QString line = QLatin1String(what) + QLatin1Char(' ') + text;
    qInfo().noquote() << base::oneLine(base::withoutSecrets(line));
    m_server.reply(line.toUtf8());
}
