// SPDX-License-Identifier: MIT
//
// Camera settings. Commands that only set something reply "true" whatever the library returned.

#include "devicelib/doccamera.h"
#include "dispatch/arguments.h"
#include "dispatch/messagerun.h"
#include "log/trace.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <utility>
#include <vector>

namespace {

constexpr int mainCamera = 1;

QString resolutionsOf(int camera)
{
    std::vector<std::pair<double, double>> sizes;
    getResolutionIndex(camera, sizes);
    QJsonArray list;
    for (const auto &[width, height] : sizes) {
        list << QJsonObject{{QStringLiteral("width"), width}, {QStringLiteral("height"), height}};
    }
    return QString::fromUtf8(QJsonDocument(list).toJson(QJsonDocument::Compact));
}

/// The device library calls this on its own thread when the camera's button is pressed.
void onCaptureButton(int pressed, int, int, unsigned int, int, void *)
{
    MessageRun::sendFromAnyThread(
        MessageRun::framed(QStringLiteral("vSetCapturePin"), MessageRun::truth(pressed == 1)));
}

} // namespace

QString MessageRun::bSetMode_callback(QString name, QString args, MessageRun *)
{
    bSetMode(numberFrom<int>(args));
    return reply(name, true);
}

QString MessageRun::vSetCamaraMode_callback(QString name, QString args, MessageRun *)
{
    vSetCamaraMode(numberFrom<short>(args));
    return reply(name, true);
}

QString MessageRun::vSetResolution_callback(QString name, QString args, MessageRun *)
{
    vSetResolutionEx(mainCamera, numberFrom<short>(args));
    return reply(name, true);
}

// Split at the first comma only; without one the whole text is both camera and index.
QString MessageRun::vSetResolutionEx_callback(QString name, QString args, MessageRun *)
{
    const int comma = args.indexOf(QLatin1Char(','));
    vSetResolutionEx(numberFrom<int>(args.left(comma)), numberFrom<int>(args.mid(comma + 1)));
    return reply(name, true);
}

// The number of fields must be exact; the reply is "true" either way.
QString MessageRun::setResolutionXY_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    if (fields.count() == 2) {
        setResolution(mainCamera, fields.number<int>(0), fields.number<int>(1));
    }
    return reply(name, true);
}

QString MessageRun::setResolutionExXY_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    if (fields.count() == 3) {
        setResolution(fields.number<int>(0), fields.number<int>(1), fields.number<int>(2));
    }
    return reply(name, true);
}

QString MessageRun::iGetResolutionX_callback(QString name, QString args, MessageRun *)
{
    return reply(name, iGetResolutionX(numberFrom<int>(args)));
}

QString MessageRun::iGetResolutionY_callback(QString name, QString args, MessageRun *)
{
    traceLine("messagerun", __LINE__, __func__);
    return reply(name, iGetResolutionY(numberFrom<int>(args)));
}

QString MessageRun::getAllResolutions_callback(QString name, QString args, MessageRun *)
{
    return reply(name, resolutionsOf(qMax(mainCamera, numberFrom<int>(args))));
}

// Unlike getAllResolutions it passes any camera number on.
QString MessageRun::getAllResolutionsEx_callback(QString name, QString args, MessageRun *)
{
    return reply(name, resolutionsOf(numberFrom<int>(args)));
}

QString MessageRun::vSetRotate_callback(QString name, QString args, MessageRun *)
{
    vSetRotate(Arguments(args).number<short>(0));
    return reply(name, true);
}

QString MessageRun::iGetRotate_callback(QString name, QString, MessageRun *)
{
    return reply(name, iGetRotate());
}

QString MessageRun::vSetFlip_callback(QString name, QString args, MessageRun *)
{
    vSetFlip(Arguments(args).number<short>(0));
    return reply(name, true);
}

QString MessageRun::iGetFlip_callback(QString name, QString, MessageRun *)
{
    return reply(name, iGetFlip());
}

QString MessageRun::vSetExposure_callback(QString name, QString args, MessageRun *)
{
    return reply(name, vSetExposure(numberFrom<int>(args)));
}

QString MessageRun::vSetBrightness_callback(QString name, QString args, MessageRun *)
{
    return reply(name, vSetBrightness(numberFrom<int>(args)));
}

QString MessageRun::vSetContrast_callback(QString name, QString args, MessageRun *)
{
    return reply(name, vSetContrast(numberFrom<int>(args)));
}

QString MessageRun::AutoFocus_callback(QString name, QString, MessageRun *)
{
    AutoFocus();
    return reply(name, true);
}

QString MessageRun::vSetDPI_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    return reply(
        name, fields.count() >= 2 && vSetDPI(fields.number<qint64>(0), fields.number<qint64>(1)));
}

QString MessageRun::vGetDPI_callback(QString name, QString, MessageRun *)
{
    int x = 0;
    int y = 0;
    vGetDPI(&x, &y);
    return reply(name, QStringLiteral("(%1,%2)").arg(x).arg(y));
}

QString MessageRun::bSetImageArea_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    return reply(name,
                 fields.count() >= 4
                     && bSetImageArea(fields.number<int>(0), fields.number<int>(1),
                                      fields.number<int>(2), fields.number<int>(3)));
}

QString MessageRun::lGetImageAreaX1_callback(QString name, QString, MessageRun *)
{
    return reply(name, lGetImageAreaX1());
}

QString MessageRun::lGetImageAreaY1_callback(QString name, QString, MessageRun *)
{
    return reply(name, lGetImageAreaY1());
}

QString MessageRun::lGetImageAreaX2_callback(QString name, QString, MessageRun *)
{
    return reply(name, lGetImageAreaX2());
}

QString MessageRun::lGetImageAreaY2_callback(QString name, QString, MessageRun *)
{
    return reply(name, lGetImageAreaY2());
}

QString MessageRun::vSetImageQuality_callback(QString name, QString args, MessageRun *)
{
    return reply(name, vSetImageQuality(numberFrom<int>(args)));
}

QString MessageRun::sGetImageQuality_callback(QString name, QString, MessageRun *)
{
    return reply(name, sGetImageQuality());
}

QString MessageRun::bSetBookScannerMode_callback(QString name, QString args, MessageRun *)
{
    return reply(name, bSetBookScannerMode(numberFrom<int>(args)));
}

QString MessageRun::igetBookScannerMode_callback(QString name, QString, MessageRun *)
{
    return reply(name, igetBookScannerMode());
}

// Replies at each press of the button, not now.
QString MessageRun::vSetCapturePin_callback(QString, QString, MessageRun *)
{
    vSetCapturePin(&onCaptureButton);
    return QString();
}

// Not supported; pages expect "true".
QString MessageRun::vSetFocus_callback(QString name, QString, MessageRun *)
{
    return reply(name, true);
}

QString MessageRun::vSetVideoCompressType_callback(QString name, QString, MessageRun *)
{
    return reply(name, true);
}

QString MessageRun::vSetDelHBFlag_callback(QString name, QString, MessageRun *)
{
    return reply(name, true);
}

QString MessageRun::vSetSkewFlag_callback(QString name, QString, MessageRun *)
{
    return reply(name, true);
}
