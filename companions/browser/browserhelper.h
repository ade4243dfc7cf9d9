// SPDX-License-Identifier: MIT
#pragma once

#include "companions/browser/browserwindow.h"
#include "companions/browser/pageaddress.h"
#include "companions/common/requestserver.h"

#include <functional>

/**
 * The browser helper: shows the page that its client asked for last, for as long as the client
 * stays connected.
 *
 * Requests: type 1, a URL; type 2, a URL and data for its page. Replies, texts that go to the
 * page that is the server's current one: "opened <address>", "failed <why>", and "closed <why>"
 * when the window has gone without being asked to.
 */
class BrowserHelper : public QObject
{
    Q_OBJECT

public:
    /// The desktop's screens; none without a display.
    using Screens = std::function<QVector<QRect>()>;

    /// Read before every page: what a technician changes holds from the next page on.
    using Settings = std::function<BrowserSettings()>;

    /// \param settleTime  see BrowserWindow
    BrowserHelper(const Settings &settings, const Screens &screens, int settleTime = 1500);

    RequestServer::Start start() { return m_server.start(); }

Q_SIGNALS:
    /// The client has gone and the window with it.
    void idle();

private:
    void show(const QList<QByteArray> &parts);
    void reply(const char *what, const QString &text);

    const Settings m_settings;
    const Screens m_screens;
    BrowserWindow m_window;
    RequestServer m_server;
    PageAddress m_page; ///< asked for last
};
