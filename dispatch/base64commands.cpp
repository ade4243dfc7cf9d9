// SPDX-License-Identifier: MIT
//
// The device library's two base64 commands, which do not use the codec of base64.h.

#include "devicelib/doccamera.h"
#include "dispatch/arguments.h"
#include "dispatch/devicetext.h"
#include "dispatch/messagerun.h"

QString MessageRun::Base64Encode_callback(QString name, QString args, MessageRun *)
{
    return reply(name, utf8Of(DeviceText(Base64Encode(args.toUtf8().constData()))));
}

// Unlike most texts, these are passed in the local 8-bit encoding.
QString MessageRun::Base64Decode_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    return reply(name,
                 fields.count() >= 2 && Base64Decode(fields.local8Bit(0), fields.local8Bit(1)));
}
