// SPDX-License-Identifier: MIT
#pragma once

#include "companionclients/companionclient.h"

/**
 * The client of the browser helper, which shows pages on the customer's screen.
 *
 * Requests: type 1, length, URL; or type 2, length, URL, length, page data. The numbers have 32
 * bits in native byte order; texts are UTF-8 and end at their first zero byte. The helper's replies
 * go to the current client as text.
 */
class Webbrowsersouthinterface : public CompanionClient
{
    Q_OBJECT

public:
    static Webbrowsersouthinterface *instance();

    /// Starts the helper and connects. \return whether it is connected
    bool start();

    /// Disconnects, upon which the helper closes its window.
    void stopWeb() { closeConnection(); }

    /// Shows a page. \return false if not connected, or if a number could not be written
    bool openURL(const QString &url);

    /// The same with data for the page, passed on unparsed.
    bool openURL(const QString &url, const QString &data);

public Q_SLOTS:
    void slot_readyRead();

private:
    Webbrowsersouthinterface();

    bool writeText(const QString &text);
};
