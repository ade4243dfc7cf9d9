// SPDX-License-Identifier: MIT
#include "devicelib/doccamera.h"
#include "portable/base/failure.h"
#include "portable/base/texts.h"
#include "portable/system/uploader.h"

using portable::UploadRequest;
using portable::UploadResult;

namespace {

/// Sends `request`, completed by its address; logs a failure.
UploadResult run(const char *function, const char *host, const char *page, long port,
                 UploadRequest request)
{
    UploadResult result;
    request.address = portable::uploadAddress(QString::fromUtf8(host), QString::fromUtf8(page),
                                              port, &result.error);
    if (!request.address.isEmpty()) {
        result = portable::upload(request);
    }
    if (!result.accepted) {
        // An invalid address isn't logged: it may hold anything, a password too.
        portable::logFailure(function,
                             QStringLiteral("%1 to %2: %3")
                                 .arg(portable::logText(request.file),
                                      portable::uploadLabel(request.address), result.error));
    }
    return result;
}

UploadRequest requestFor(const char *file)
{
    UploadRequest request;
    request.file = QString::fromUtf8(file);
    return request;
}

/// The answer of a server that accepted the file; null otherwise.
char *answerOf(const UploadResult &result)
{
    return result.accepted ? portable::heapText(result.answer) : nullptr;
}

} // namespace

namespace portable::api {

char *sUpLoadImage(const char *address, const char *file, const char *fileField, bool removeFile,
                   const char *extraFields)
{
    UploadRequest request = requestFor(file);
    request.fileField = QString::fromUtf8(fileField);
    request.fields = portable::uploadFields(QString::fromUtf8(extraFields));
    request.removeFile = removeFile;
    return answerOf(run(__func__, address, "", 0, request));
}

char *sUpLoadImageEx2(const char *host, const char *page, long port, const char *file)
{
    return answerOf(run(__func__, host, page, port, requestFor(file)));
}

bool bUpLoadImage(const char *host, const char *page, long port, const char *file)
{
    return run(__func__, host, page, port, requestFor(file)).accepted;
}

bool sUpLoadImageEx5(const char *host, const char *page, long port, const char *file,
                     const char *extraFields, const char *fileField, QString *response)
{
    UploadRequest request = requestFor(file);
    request.fields = portable::uploadFields(QString::fromUtf8(extraFields));
    request.fileField = QString::fromUtf8(fileField);
    const UploadResult result = run(__func__, host, page, port, request);
    *response = result.answer;
    return result.accepted;
}

} // namespace portable::api
