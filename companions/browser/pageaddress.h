// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>

/// What a request names as the page to show.
struct PageAddress
{
    QUrl url; ///< of scheme file, http or https; empty when it is refused
    QString refusal; ///< why it is; empty when it is not

    /// For people: a path or a URL without its password, not too long.
    QString shown() const;
};

/**
 * Takes the text of a request: an absolute path, or a URL of scheme file, http or https. Anything
 * else is refused, and so is a path or file: URL without a file on this machine.
 */
PageAddress pageAddress(const QString &text);

/**
 * The address with data for the page in its fragment: "#data=" and the text as percent-encoded
 * UTF-8, after "&" when the address has a fragment of its own.
 */
QByteArray withData(const QUrl &url, const QString &data);
