// SPDX-License-Identifier: MIT
/// \file Uploads files to web servers; docs/upload.md describes the requests.
#pragma once

#include "base/clock.h"

#include <QString>
#include <QUrl>

#include <chrono>
#include <utility>
#include <vector>

namespace portable {

using UploadFields = std::vector<std::pair<QString, QString>>;

struct UploadRequest
{
    QUrl address; ///< From uploadAddress().
    QString file; ///< Path.
    QString fileField; ///< Name of the file's form field; empty: "file".
    UploadFields fields; ///< The form's other fields.
    bool removeFile = false; ///< After the server has accepted it.
};

/// When an upload is aborted.
struct UploadLimits
{
    std::chrono::milliseconds connect{10'000};
    std::chrono::seconds stall{30}; ///< Without data in either direction.
    std::chrono::milliseconds total{600'000}; ///< With all redirections.
    int answerBytes = 16 * 1024 * 1024;
    int headerBytes = 256 * 1024; ///< Of each response, those with status 100 included.
};

struct UploadResult
{
    bool accepted = false; ///< The server responded with 2xx.
    QString answer; ///< The body of its response, also when it refused the file.
    QString error; ///< Why it was not accepted, for the log.
};

/**
 * Sends a file as multipart/form-data (RFC 7578) by POST and waits for the response. May be called
 * from any thread, also concurrently. Aborted when the application ends.
 * \param clock  measures UploadLimits::stall and what is left of UploadLimits::total
 */
UploadResult upload(const UploadRequest &request, const UploadLimits &limits = {},
                    const base::Clock &clock = base::Clock::shared());

/**
 * Composes a URL.
 * \param host  an http or https URL, or a host with optional port and path, for http
 * \param page  appended to the path of `host`; may be empty and may have a query
 * \param port  replaces that of `host`; 0 keeps it
 * \return empty, with a reason for the log, when the result isn't an http or https URL
 */
QUrl uploadAddress(const QString &host, const QString &page, long port, QString *error);

/**
 * Whether an upload may follow a redirection: to http or https, but never from https to http; under
 * an access policy only to the same scheme, host and port.
 */
bool mayFollowRedirection(const QUrl &from, const QUrl &to);

/// Parses "key=value&key=value", percent-encoded, with a literal "+". Skips items without a key.
UploadFields uploadFields(const QString &text);

/// A URL for the log, without user info, query and fragment, which may be confidential.
QString uploadLabel(const QUrl &address);

} // namespace portable
