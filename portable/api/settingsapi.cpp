// SPDX-License-Identifier: MIT
#include "devicelib/doccamera.h"
#include "portable/base/failure.h"
#include "portable/camera/cameraset.h"
#include "portable/camera/camerasources.h"
#include "portable/camera/capturebutton.h"

#include <atomic>

using portable::Adjustments;
using portable::CameraSet;
using portable::logFailure;
using portable::Settings;

namespace {

Settings &settings()
{
    return CameraSet::instance().settings();
}

bool setAdjustment(const char *function, int Adjustments::*which, int value)
{
    return settings().setAdjustment(which, value)
        || logFailure(function, QStringLiteral("%1 is not a number from -100 to 100").arg(value));
}

std::atomic<short> cameraMode{0}; // has no effect in this library

} // namespace

namespace portable::api {

bool bSetMode(int mode)
{
    return settings().setMode(mode)
        || logFailure(__func__, QStringLiteral("%1 is not a mode from 0 to 2").arg(mode));
}

void vSetCamaraMode(short mode)
{
    cameraMode = mode;
}

void vSetResolutionEx(int camera, int index)
{
    const std::vector<cv::Size> sizes = CameraSet::instance().sizes(camera);
    if (index < 0 || size_t(index) >= sizes.size()) {
        logFailure(__func__,
                   QStringLiteral("%1 has %2 sizes, and none of index %3")
                       .arg(portable::cameraName(camera))
                       .arg(sizes.size())
                       .arg(index));
        return;
    }
    settings().setResolution(camera, sizes[size_t(index)]);
}

void setResolution(int camera, int width, int height)
{
    if (portable::cameraKey(camera).isEmpty() || width <= 0 || height <= 0) {
        logFailure(__func__,
                   QStringLiteral("there is no camera %1, or no size of %2 x %3")
                       .arg(camera)
                       .arg(width)
                       .arg(height));
        return;
    }
    settings().setResolution(camera, {width, height});
}

void vSetRotate(short angle)
{
    if (!settings().setRotation(angle)) {
        logFailure(__func__, QStringLiteral("there is no rotation by %1 degrees").arg(angle));
    }
}

short iGetRotate()
{
    return short(settings().orientation().rotation);
}

void vSetFlip(short mode)
{
    if (!settings().setFlip(mode)) {
        logFailure(__func__, QStringLiteral("there is no mode %1").arg(mode));
    }
}

short iGetFlip()
{
    return short(settings().orientation().flip);
}

void getResolutionIndex(int camera, std::vector<std::pair<double, double>> &sizes)
{
    sizes.clear();
    for (const cv::Size &size : CameraSet::instance().sizes(camera)) {
        sizes.emplace_back(size.width, size.height);
    }
}

int iGetResolutionX(int camera)
{
    return CameraSet::instance().size(camera).width;
}

int iGetResolutionY(int camera)
{
    return CameraSet::instance().size(camera).height;
}

bool vSetExposure(int value)
{
    return setAdjustment(__func__, &Adjustments::exposure, value);
}

bool vSetBrightness(int value)
{
    return setAdjustment(__func__, &Adjustments::brightness, value);
}

bool vSetContrast(int value)
{
    return setAdjustment(__func__, &Adjustments::contrast, value);
}

bool AutoFocus()
{
    if (!CameraSet::instance().isOpen()) {
        return logFailure(__func__, QStringLiteral("no camera is open"));
    }
    settings().focus();
    return true;
}

bool vSetDPI(qint64 x, qint64 y)
{
    return settings().setDpi(x, y)
        || logFailure(__func__,
                      QStringLiteral("%1 and %2 are not both from 50 to 1200").arg(x).arg(y));
}

void vGetDPI(int *x, int *y)
{
    const portable::Dpi dpi = settings().capture().dpi;
    *x = dpi.x;
    *y = dpi.y;
}

bool bSetImageArea(int x1, int y1, int x2, int y2)
{
    return settings().setArea(x1, y1, x2, y2)
        || logFailure(__func__,
                      QStringLiteral("there is nothing from (%1, %2) to (%3, %4)")
                          .arg(x1)
                          .arg(y1)
                          .arg(x2)
                          .arg(y2));
}

long lGetImageAreaX1()
{
    return settings().capture().areaBegin.x;
}

long lGetImageAreaY1()
{
    return settings().capture().areaBegin.y;
}

long lGetImageAreaX2()
{
    return settings().capture().areaEnd.x;
}

long lGetImageAreaY2()
{
    return settings().capture().areaEnd.y;
}

bool vSetImageQuality(int quality)
{
    return settings().setQuality(quality)
        || logFailure(__func__, QStringLiteral("%1 is not a quality from 1 to 100").arg(quality));
}

short sGetImageQuality()
{
    return short(settings().capture().quality);
}

bool bSetBookScannerMode(int mode)
{
    return settings().setBookMode(mode)
        || logFailure(__func__, QStringLiteral("%1 is not a mode from 0 to 2").arg(mode));
}

int igetBookScannerMode()
{
    return int(settings().bookMode());
}

void vSetCapturePin(void (*listener)(int, int, int, unsigned int, int, void *))
{
    using Listener = void (*)(int, int, int, unsigned int, int, void *);
    static std::atomic<Listener> current{nullptr};
    current = listener;
    static const portable::CaptureButton button([] {
        if (const Listener heard = current) {
            heard(1, 0, 0, 0, 0, nullptr);
        }
    });
}

} // namespace portable::api
