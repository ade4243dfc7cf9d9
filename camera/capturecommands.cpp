// SPDX-License-Identifier: MIT
//
// Still pictures, saved to files by the device library or returned to the page as base64.

#include "base/neighbor.h"
#include "camera/mat2base64.h"
#include "devicelib/doccamera.h"
#include "dispatch/arguments.h"
#include "dispatch/messagerun.h"
#include "log/trace.h"

#include <QDateTime>
#include <QDebug>
#include <QFile>
#include <opencv2/core.hpp>

#include <algorithm>

namespace {

constexpr int maxFieldsLogged = 100; // SplitPic takes two; a hostile text must not fill the log

/// The running camera's current frame as base64 of a JPEG; empty without one.
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

// Not supported; pages expect "true".
QString MessageRun::bSaveTIF24Bit_callback(QString name, QString, MessageRun *)
{
    return reply(name, true);
}

QString MessageRun::SplitPic_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    if (fields.count() >= 2 && LongText(args).isShortened()) {
        traceLine("messagerun", __LINE__, __func__) << LongText(args);
    } else if (fields.count() >= 2) {
        QStringList logged;
        for (int i = 0; i < std::min(fields.count(), maxFieldsLogged); ++i) {
            logged << fields.text(i);
        }
        traceLine("messagerun", __LINE__, __func__) << logged;
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

// Saves to a temporary file and returns its content. Without a file the reply is the current frame;
// a failed save is not reported.
QString MessageRun::bSaveJPGEx_callback(QString name, QString, MessageRun *)
{
    const QString file = QLatin1String("VX")
        + QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMddhhmmsszzz"));
    bSaveJPG("/tmp", file.toUtf8().constData());
    QFile saved(QStringLiteral("/tmp/%1.jpg").arg(file));
    // Others may have guessed the name.
    const QString squatter = base::squatterProblem(saved.fileName());
    if (!squatter.isEmpty()) {
        qWarning().noquote() << "bSaveJPGEx: the picture isn't saved:" << squatter;
    }
    if (!squatter.isEmpty() || !saved.open(QIODevice::ReadOnly)) {
        return reply(name, currentFrame());
    }
    const QByteArray bytes = saved.readAll();
    saved.close();
    saved.remove();
    return reply(name, QString::fromLatin1(bytes.toBase64()));
}
