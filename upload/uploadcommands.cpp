// SPDX-License-Identifier: MIT
//
// Upload of images to a server that the page names. The device library does the transfer.

#include "devicelib/doccamera.h"
#include "dispatch/arguments.h"
#include "dispatch/clientqueue.h"
#include "dispatch/deviceguard.h"
#include "dispatch/devicetext.h"
#include "dispatch/failureresult.h"
#include "dispatch/messagerun.h"
#include "upload/upload.h"
#include "upload/uploadpool.h"

#include <QWebSocket>

#include <memory>

namespace {

/// The result of an upload, from its arguments. Called on a thread of the pool.
using UploadFunction = QString (*)(const Arguments &fields);

/**
 * Uploads, then replies to the client that asked. Its later commands wait for that, so that its
 * replies keep their order; other clients are served meanwhile. What a client that has gone waited
 * for is dropped.
 */
QString uploadAndReply(const QString &name, const QString &args, MessageRun *dispatcher,
                       UploadFunction upload)
{
    const QPointer<QWebSocket> client = gpWebSocket;
    const auto hold = std::make_shared<ClientQueue::Hold>(dispatcher->clientQueue()->hold(client));
    if (!*hold) { // nobody whose commands could wait
        return MessageRun::reply(name, upload(Arguments(args)));
    }
    const QString failure = failureResult(name).value_or(QString());
    const auto result = std::make_shared<QString>(failure);
    const auto work = [=] {
        *result = guarded(name, failure, [&] { return upload(Arguments(args)); });
    };
    UploadPool::instance().start(client, work, [=](bool) {
        MessageRun::replyTo(client, name, *result);
        hold->release();
    });
    return {};
}

} // namespace

// The fifth field is passed before the fourth. Missing fields from the third on are empty or off.
QString MessageRun::sUpLoadImage_callback(QString name, QString args, MessageRun *self)
{
    if (Arguments(args).count() < 2) {
        return reply(name, false);
    }
    return uploadAndReply(name, args, self, [](const Arguments &fields) {
        return utf8Of(DeviceText(::sUpLoadImage(fields.utf8(0), fields.utf8(1), fields.utf8(2),
                                                fields.number<int>(4) != 0, fields.utf8(3))));
    });
}

// The same under another name. Its sixth field is ignored.
QString MessageRun::sUpLoadImageEx6_callback(QString name, QString args, MessageRun *self)
{
    return sUpLoadImage_callback(name, args, self);
}

QString MessageRun::sUpLoadImageEx2_callback(QString name, QString args, MessageRun *self)
{
    if (Arguments(args).count() < 4) {
        return reply(name, false);
    }
    return uploadAndReply(name, args, self, [](const Arguments &fields) {
        return utf8Of(DeviceText(::sUpLoadImageEx2(fields.utf8(0), fields.utf8(1),
                                                   fields.number<long>(2), fields.utf8(3))));
    });
}

QString MessageRun::bUpLoadImage_callback(QString name, QString args, MessageRun *self)
{
    if (Arguments(args).count() < 4) {
        return reply(name, false);
    }
    return uploadAndReply(name, args, self, [](const Arguments &fields) {
        return truth(
            ::bUpLoadImage(fields.utf8(0), fields.utf8(1), fields.number<long>(2), fields.utf8(3)));
    });
}

// Replies when the upload is done.
QString MessageRun::sUpLoadImageEx5_callback(QString name, QString args, MessageRun *self)
{
    Upload::start(name, args, self);
    return QStringLiteral(" ");
}
