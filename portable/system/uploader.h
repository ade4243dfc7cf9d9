// SPDX-License-Identifier: MIT
/// \file Files to web servers; docs/upload.md tells pages and servers what goes over the wire.
#pragma once

#include <QString>
#include <QUrl>

#include <chrono>
#include <utility>
#include <vector>

namespace portable {

using UploadFields = std::vector<std::pair<QString, QString>>;

struct UploadRequest
{
    QUrl address; ///< As uploadAddress() makes it.
    QString file; ///< Path.
    QString fileField; ///< Name of the form field that the file goes in; empty: "file".
    UploadFields fields; ///< Further fields of the form.
    bool removeFile = false; ///< Afterwards, if the server has accepted it.
};

/// When an upload is given up; tests wait less.
struct UploadLimits
{
    std::chrono::milliseconds connect{10'000};
    std::chrono::seconds stall{30}; ///< Without a byte in either direction.
    std::chrono::milliseconds whole{600'000};
    int answerBytes = 16 * 1024 * 1024;
};

struct UploadResult
{
    bool accepted = false; ///< The server answered with 2xx.
    QString answer; ///< Its text, where it gave one, whether it accepted the file or not.
    QString error; ///< Why it is not accepted, for the log.
};

/**
 * Sends a file as multipart/form-data (RFC 7578) by POST, and waits for the answer. Callable from
 * any thread, by several at once. It is given up, too, when the application ends.
 */
UploadResult upload(const UploadRequest &request, const UploadLimits &limits = {});

/**
 * Puts an address together.
 * \param host  an address of http or https, or a host, optionally with port and path, for http
 * \param page  goes behind the path of `host`; may be empty, and may have a query
 * \param port  in place of that of `host`; 0: leaves it
 * \return empty, with a reason for the log, when that makes no address of http or https
 */
QUrl uploadAddress(const QString &host, const QString &page, long port, QString *error);

/// "key=value&key=value", percent-encoded as in a URL; "+" is itself. What has no key is left out.
UploadFields uploadFields(const QString &text);

/// An address for the log: without the parts that are for the server's eyes only.
QString uploadLabel(const QUrl &address);

} // namespace portable
