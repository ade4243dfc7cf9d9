// SPDX-License-Identifier: MIT
#pragma once

#include "companionclients/companionclient.h"

/**
 * The client of the browser helper, which shows pages on the customer's screen.
 *
 * Requests, numbers of 32 bits in native byte order: type 1, length, URL; or type 2, length, URL,
 * length, page data. Texts are UTF-8 up to their first zero byte. What the helper replies goes to
 * the current page as text.
 */
class Webbrowsersouthinterface : public CompanionClient
{
    Q_OBJECT

public:
    static Webbrowsersouthinterface *instance();

    /// Starts the helper and connects. \return whether the connection stands
    bool start();

    /// Ends the connection: the helper then closes its window.
    void stopWeb() { leave(); }

    /// Shows a page. \return false without a connection, or when a number could not be written
    bool openURL(const QString &url);

    /// The same with data for the page, unparsed.
    bool openURL(const QString &url, const QString &data);

public Q_SLOTS:
    void slot_readyRead();

private:
    Webbrowsersouthinterface();

    bool writeText(const QString &text);
};
