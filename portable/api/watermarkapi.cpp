// SPDX-License-Identifier: MIT
#include "devicelib/doccamera.h"
#include "portable/base/failure.h"
#include "portable/camera/cameraset.h"

using portable::logFailure;
using portable::Watermark;

namespace {

void change(const std::function<void(Watermark &)> &change)
{
    portable::CameraSet::instance().settings().changeWatermark(change);
}

} // namespace

namespace portable::api {

void vSetWaterPrint(short on, const char *text, short opacity)
{
    if (opacity < 0 || opacity > 100) {
        logFailure(__func__, QStringLiteral("%1 is not an opacity from 0 to 100").arg(opacity));
        return;
    }
    change([&](Watermark &watermark) {
        watermark.isOn = on != 0;
        watermark.text = QString::fromLocal8Bit(text);
        watermark.opacity = opacity == 0 ? 100 : opacity;
    });
}

void vSetWaterPrintFont(const char *family)
{
    change([&](Watermark &watermark) { watermark.family = QString::fromLocal8Bit(family); });
}

void vSetWaterPrintFontSize(short points)
{
    if (points < 1) {
        logFailure(__func__, QStringLiteral("%1 is not a size in points").arg(points));
        return;
    }
    change([&](Watermark &watermark) { watermark.points = points; });
}

void vSetWaterPrintFontColor(long color)
{
    change([&](Watermark &watermark) { watermark.color = QRgb(color & 0xFFFFFF); });
}

void vSetWaterPrintPos(short x, short y)
{
    change([&](Watermark &watermark) { watermark.position = {x, y}; });
}

} // namespace portable::api
