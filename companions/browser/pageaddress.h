// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>

/// The page that a request asks for.
struct PageAddress
{
    QUrl url; ///< file:, http: or https:; empty if refused
    QString refusal; ///< the reason; empty if accepted

    /// For logs and replies: a path, or a URL without its password, shortened.
    QString shown() const;
};

/**
 * Parses the text of a request: an absolute path, or a file:, http: or https: URL. Refuses anything
 * else, and paths and file: URLs that name no file on this machine.
 */
PageAddress pageAddress(const QString &text);

/**
 * Adds data for the page to the fragment of its address: "data=" and the text as percent-encoded
 * UTF-8, after "&" if the address has a fragment already.
 */
QByteArray withData(const QUrl &url, const QString &data);
