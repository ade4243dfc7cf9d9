// SPDX-License-Identifier: MIT
#include "devicelib/doccamera.h"
#include "portable/base/unsupported.h"
#include "portable/camera/cameras.h"
#include "portable/camera/deviceconfig.h"
#include "portable/picture/images.h"

#include <QDebug>
#include <QImage>

using portable::Cameras;

bool bStartPlay(short rotation)
{
    return Cameras::instance().start(1, rotation);
}

bool bStartPlay2(short rotation)
{
    return Cameras::instance().start(2, rotation);
}

bool bStartPlay3(short rotation)
{
    return Cameras::instance().start(3, rotation);
}

bool bStartPlay5(short rotation)
{
    return Cameras::instance().start(5, rotation);
}

bool bStartPlay6(short rotation)
{
    return Cameras::instance().start(6, rotation);
}

bool bStartPlay8(short rotation)
{
    return Cameras::instance().start(8, rotation);
}

bool bStartPlay9(short rotation)
{
    return Cameras::instance().start(9, rotation);
}

bool bStartPlayOpen()
{
    return Cameras::instance().start(portable::dualCamera);
}

bool bStopPlay()
{
    Cameras::instance().stopMain();
    return true;
}

bool bStartPlay4()
{
    return Cameras::instance().start(4);
}

bool bStopPlay4()
{
    Cameras::instance().stopFourth();
    return true;
}

bool getVideoFrame(QImage &frame)
{
    cv::Mat pixels;
    const bool ok = Cameras::instance().nextPreviewFrame(pixels);
    frame = ok ? portable::toImage(pixels) : QImage();
    return ok;
}

bool getVideoFrameMat(cv::Mat &frame)
{
    return Cameras::instance().currentFrame(frame);
}

bool getVideoFrameMatEx(cv::Mat &frame)
{
    return Cameras::instance().currentFrame(frame);
}

bool bAVPreview(qint64, qint64)
{
    return portable::unsupported<bool>(__func__);
}

void vSetImageDispFlag(bool)
{
    // There is no display of its own to switch.
}

void doccameraVeriosn(char *buffer, int capacity)
{
    if (buffer && capacity > 0) {
        qstrncpy(buffer, "portable device library " PORTABLE_VERSION, uint(capacity));
    }
}
