// SPDX-License-Identifier: MIT
#include "devicelib/doccamera.h"
#include "portable/base/failure.h"
#include "portable/base/texts.h"
#include "portable/system/uploader.h"

using portable::UploadRequest;
using portable::UploadResult;

namespace {

/// What the functions have in common; `request` comes without its address.
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

/// What pages see as text: the answer of a server that accepted the file.
char *answerOf(const UploadResult &result)
{
    return result.accepted ? portable::heapText(result.answer) : nullptr;
}

} // namespace

char *sUpLoadImage(const char *p1, const char *p2, const char *p3, bool flag, const char *p4)
{
    UploadRequest request = requestFor(p2);
    request.fileField = QString::fromUtf8(p3);
    request.fields = portable::uploadFields(QString::fromUtf8(p4));
    request.removeFile = flag;
    return answerOf(run(__func__, p1, "", 0, request));
}

char *sUpLoadImageEx2(const char *p1, const char *p2, long p3, const char *p4)
{
    return answerOf(run(__func__, p1, p2, p3, requestFor(p4)));
}

bool bUpLoadImage(const char *p1, const char *p2, long p3, const char *p4)
{
    return run(__func__, p1, p2, p3, requestFor(p4)).accepted;
}

bool sUpLoadImageEx5(const char *p1, const char *p2, long p3, const char *p4, const char *p6,
                     const char *p7, QString *answer)
{
    UploadRequest request = requestFor(p4);
    request.fields = portable::uploadFields(QString::fromUtf8(p6));
    request.fileField = QString::fromUtf8(p7);
    const UploadResult result = run(__func__, p1, p2, p3, request);
    *answer = result.answer;
    return result.accepted;
}
