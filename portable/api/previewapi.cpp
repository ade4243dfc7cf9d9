// SPDX-License-Identifier: MIT
#include "devicelib/doccamera.h"
#include "portable/base/failure.h"
#include "portable/base/simulation.h"
#include "portable/camera/cameraset.h"
#include "portable/camera/camerasources.h"
#include "portable/picture/imageconversion.h"
#include "portable/recording/avpreview.h"

#include <QDebug>
#include <QImage>

#include <algorithm>

using portable::CameraSet;

namespace portable::api {

namespace {

constexpr qint64 maxMicrophone = 1000; // no machine has more

} // namespace

bool bStartPlay(short rotation)
{
    return CameraSet::instance().start(1, rotation);
}

bool bStartPlay2(short rotation)
{
    return CameraSet::instance().start(2, rotation);
}

bool bStartPlay3(short rotation)
{
    return CameraSet::instance().start(3, rotation);
}

bool bStartPlay5(short rotation)
{
    return CameraSet::instance().start(5, rotation);
}

bool bStartPlay6(short rotation)
{
    return CameraSet::instance().start(6, rotation);
}

bool bStartPlay8(short rotation)
{
    return CameraSet::instance().start(8, rotation);
}

bool bStartPlay9(short rotation)
{
    return CameraSet::instance().start(9, rotation);
}

bool bStartPlayOpen()
{
    return CameraSet::instance().start(portable::dualCamera);
}

bool bStopPlay()
{
    CameraSet::instance().stopMain();
    return true;
}

bool bStartPlay4()
{
    return CameraSet::instance().start(4);
}

bool bStopPlay4()
{
    CameraSet::instance().stopFourth();
    return true;
}

bool getVideoFrame(QImage &frame)
{
    cv::Mat pixels;
    const bool ok = CameraSet::instance().nextPreviewFrame(pixels);
    frame = ok ? portable::toImage(pixels) : QImage();
    return ok;
}

bool getVideoFrameMat(cv::Mat &frame)
{
    return CameraSet::instance().currentFrame(frame);
}

bool getVideoFrameMatEx(cv::Mat &frame)
{
    return CameraSet::instance().currentFrame(frame);
}

bool bAVPreview(qint64 on, qint64 microphone)
{
    if (on == 0) {
        AvPreview::instance().close();
        return true;
    }
    if (!PageWindow::isDisplayThere()) {
        return logFailure(__func__, QStringLiteral("there is no display"));
    }
    chooseMicrophone(int(std::clamp<qint64>(microphone, 0, maxMicrophone)));
    AvPreview::instance().open();
    return true;
}

void vSetImageDispFlag(bool on)
{
    AvPreview::instance().setVisible(on);
}

void doccameraVeriosn(char *buffer, int capacity)
{
    if (buffer && capacity > 0) {
        const QByteArray version = QByteArrayLiteral("portable device library " PORTABLE_VERSION)
            + (isSimulationEnabled() ? " (simulation)" : "");
        qstrncpy(buffer, version.constData(), uint(capacity));
    }
}

} // namespace portable::api
