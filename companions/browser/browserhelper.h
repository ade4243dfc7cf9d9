// SPDX-License-Identifier: MIT
#pragma once

#include "companions/browser/browserwindow.h"
#include "companions/browser/pageaddress.h"
#include "companions/common/requestserver.h"

#include <functional>

/**
 * Shows the page that its client last asked for, until the client disconnects.
 *
 * Requests: type 1, a URL; type 2, a URL and data for the page. Replies are texts, which the server
 * passes on to its current client: "opened <address>", "failed <reason>", and "closed <reason>"
 * when the window closes by itself.
 */
class BrowserHelper : public QObject
{
    Q_OBJECT

public:
    /// The desktop's screens; none without a display.
    using Screens = std::function<QVector<QRect>()>;

    /// Called before every page, so that a changed setting applies to the next one.
    using Settings = std::function<BrowserSettings()>;

    BrowserHelper(const Settings &settings, const Screens &screens,
                  const BrowserTimes &times = BrowserTimes());

    RequestServer::Start start() { return m_server.start(); }

Q_SIGNALS:
    /// The client has disconnected and the window is closed.
    void idle();

private:
    void show(const QList<QByteArray> &parts);
    void reply(const char *what, const QString &text);

    const Settings m_settings;
    const Screens m_screens;
    BrowserWindow m_window;
    RequestServer m_server;
    PageAddress m_page; ///< last requested
};
