// SPDX-License-Identifier: MIT
/// \file What the library and its module for uploads and printing have in common.
#pragma once

#include "portable/system/printer.h"
#include "portable/system/uploader.h"

namespace portable {

/// See upload().
UploadResult uploadByCurl(const UploadRequest &request, const UploadLimits &limits,
                          const base::Clock &clock);

/// Makes the page of a job for a sheet; see printedPage().
using MakePage = QByteArray (*)(const PrintJob &job, const Sheet &sheet);

/// See print().
bool printByCups(const PrintJob &job, const QString &printer, MakePage makePage, QString *error);

/// What libportabletransfer.so exports as `portableTransfer`.
struct TransferModule
{
    UploadResult (*upload)(const UploadRequest &request, const UploadLimits &limits,
                           const base::Clock &clock);
    bool (*print)(const PrintJob &job, const QString &printer, MakePage makePage, QString *error);
};

/**
 * Loads it when it is first needed: libcurl and CUPS bring forty libraries along, which would take
 * a third of the device process's start. \return null, with a reason that names the file
 */
const TransferModule *transferModule(QString *error);

} // namespace portable
