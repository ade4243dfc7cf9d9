// SPDX-License-Identifier: MIT
//
// Still pictures: saved as files by the device library, or handed to the page as base64.

#include "camera/mat2base64.h"
#include "devicelib/doccamera.h"
#include "dispatch/arguments.h"
#include "dispatch/messagerun.h"
#include "log/trace.h"

#include <QDateTime>
#include <QFile>
#include <opencv2/core.hpp>

#include <algorithm>

namespace {

constexpr int maxPartsLogged = 100; // SplitPic takes two; a text of nothing but "," fills no log

/// The running camera's picture as base64 of a JPEG; empty without one.
QString currentFrame()
{
    cv::Mat frame;
    if (!getVideoFrameMatEx(frame)) {
        return QString();
    }
    return QString::fromStdString(Mat2Base64(frame, "JPG"));
}

} // namespace

QString MessageRun::bSaveJPG_callback(QString name, QString args, MessageRun *)
{
    return replyTwoTexts(name, args, bSaveJPG);
}

QString MessageRun::bSaveTifJPG_callback(QString name, QString args, MessageRun *)
{
    return replyTwoTexts(name, args, bSaveTifJPG);
}

QString MessageRun::bSaveGray_callback(QString name, QString args, MessageRun *)
{
    return replyTwoTexts(name, args, bSaveGray);
}

QString MessageRun::bSaveTIF_callback(QString name, QString args, MessageRun *)
{
    return replyTwoTexts(name, args, bSaveTIF);
}

QString MessageRun::bSaveBMP_callback(QString name, QString args, MessageRun *)
{
    return replyTwoTexts(name, args, bSaveBMP);
}

QString MessageRun::bSavePNG_callback(QString name, QString args, MessageRun *)
{
    return replyTwoTexts(name, args, bSavePNG);
}

QString MessageRun::bSaveGrayAndTIF_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    return reply(
        name,
        fields.count() >= 4
            && bSaveGrayAndTIF(fields.utf8(0), fields.utf8(1), fields.utf8(2), fields.utf8(3)));
}

// Accepted, not supported: pages expect "true".
QString MessageRun::bSaveTIF24Bit_callback(QString name, QString, MessageRun *)
{
    return reply(name, true);
}

QString MessageRun::SplitPic_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    QStringList parts;
    for (int i = 0; i < std::min(fields.count(), maxPartsLogged); ++i) {
        parts << fields.text(i);
    }
    if (parts.size() >= 2) {
        traceLine("messagerun", __LINE__, __func__) << parts;
    }
    return replyTwoTexts(name, args, SplitPic);
}

QString MessageRun::sGetImageBase64_callback(QString name, QString args, MessageRun *)
{
    return reply(name, QString::fromUtf8(sGetImageBase64_Byte(numberFrom<int>(args))));
}

QString MessageRun::sGetJpgBase64_callback(QString name, QString, MessageRun *)
{
    return reply(name, currentFrame());
}

QString MessageRun::sGetBase64_callback(QString name, QString args, MessageRun *self)
{
    return sGetJpgBase64_callback(name, args, self);
}

// Saves and takes the file back; when there is none the running camera's picture must do. A failed
// save is never told.
QString MessageRun::bSaveJPGEx_callback(QString name, QString, MessageRun *)
{
    const QString file = QLatin1String("VX")
        + QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMddhhmmsszzz"));
    bSaveJPG("/tmp", file.toUtf8().constData());
    QFile saved(QStringLiteral("/tmp/%1.jpg").arg(file));
    if (!saved.open(QIODevice::ReadOnly)) {
        return reply(name, currentFrame());
    }
    const QByteArray bytes = saved.readAll();
    saved.close();
    saved.remove();
    return reply(name, QString::fromLatin1(bytes.toBase64()));
}
