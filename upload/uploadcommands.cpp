// SPDX-License-Identifier: MIT
//
// Upload of images to a server that the page names. The device library does the transfer.

#include "devicelib/doccamera.h"
#include "dispatch/arguments.h"
#include "dispatch/devicetext.h"
#include "dispatch/messagerun.h"
#include "upload/upload.h"

// The fifth field is passed before the fourth. Missing fields from the third on are empty or off.
QString MessageRun::sUpLoadImage_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    if (fields.count() < 2) {
        return reply(name, false);
    }
    return reply(name,
                 utf8Of(DeviceText(sUpLoadImage(fields.utf8(0), fields.utf8(1), fields.utf8(2),
                                                fields.number<int>(4) != 0, fields.utf8(3)))));
}

// The same under another name. Its sixth field is ignored.
QString MessageRun::sUpLoadImageEx6_callback(QString name, QString args, MessageRun *self)
{
    return sUpLoadImage_callback(name, args, self);
}

QString MessageRun::sUpLoadImageEx2_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    if (fields.count() < 4) {
        return reply(name, false);
    }
    return reply(name,
                 utf8Of(DeviceText(sUpLoadImageEx2(fields.utf8(0), fields.utf8(1),
                                                   fields.number<long>(2), fields.utf8(3)))));
}

QString MessageRun::bUpLoadImage_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    return reply(name,
                 fields.count() >= 4
                     && bUpLoadImage(fields.utf8(0), fields.utf8(1), fields.number<long>(2),
                                     fields.utf8(3)));
}

// Replies when the upload is done.
QString MessageRun::sUpLoadImageEx5_callback(QString name, QString args, MessageRun *self)
{
    Upload::start(name, args, self);
    return QStringLiteral(" ");
}
