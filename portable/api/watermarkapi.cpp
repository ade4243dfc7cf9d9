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

void vSetWaterPrint(short a, const char *text, short b)
{
    if (b < 0 || b > 100) {
        logFailure(__func__, QStringLiteral("%1 is not an opacity from 0 to 100").arg(b));
        return;
    }
    change([&](Watermark &watermark) {
        watermark.isOn = a != 0;
        watermark.text = QString::fromLocal8Bit(text);
        watermark.opacity = b == 0 ? 100 : b;
    });
}

void vSetWaterPrintFont(const char *font)
{
    change([&](Watermark &watermark) { watermark.family = QString::fromLocal8Bit(font); });
}

void vSetWaterPrintFontSize(short size)
{
    if (size < 1) {
        logFailure(__func__, QStringLiteral("%1 is not a size in points").arg(size));
        return;
    }
    change([&](Watermark &watermark) { watermark.points = size; });
}

void vSetWaterPrintFontColor(long color)
{
    change([&](Watermark &watermark) { watermark.color = QRgb(color & 0xFFFFFF); });
}

void vSetWaterPrintPos(short x, short y)
{
    change([&](Watermark &watermark) { watermark.position = {x, y}; });
}
