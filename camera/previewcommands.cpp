// SPDX-License-Identifier: MIT
//
// The preview commands. The capture thread starts and stops the camera and sends those replies
// itself; the other commands reply at once.

#include "camera/captureimgthread.h"
#include "camera/mat2base64.h"
#include "devicelib/doccamera.h"
#include "dispatch/arguments.h"
#include "dispatch/deviceguard.h"
#include "dispatch/messagerun.h"

#include <QDebug>
#include <opencv2/core.hpp>

namespace {

/// The return value of a callback whose reply comes later; it is ignored.
QString repliedLater()
{
    return QStringLiteral(" ");
}

QString open(int camera)
{
    CaptureImgThread::instance()->openCamera(camera);
    return repliedLater();
}

} // namespace

QString MessageRun::bStartPlay_callback(QString, QString, MessageRun *)
{
    qDebug() << "bStartPlay_callback";
    return open(1);
}

QString MessageRun::bStartPlay2_callback(QString, QString, MessageRun *)
{
    return open(2);
}

QString MessageRun::bStartPlay3_callback(QString, QString, MessageRun *)
{
    return open(3);
}

QString MessageRun::bStartPlay5_callback(QString, QString, MessageRun *)
{
    return open(5);
}

QString MessageRun::bStartPlay6_callback(QString, QString, MessageRun *)
{
    return open(6);
}

QString MessageRun::bStartPlay8_callback(QString, QString, MessageRun *)
{
    return open(8);
}

QString MessageRun::bStartPlay9_callback(QString, QString, MessageRun *)
{
    return open(9);
}

QString MessageRun::bStartPlayOpen_callback(QString, QString, MessageRun *)
{
    return open(25);
}

QString MessageRun::bStartPlayRotate_callback(QString, QString args, MessageRun *)
{
    vSetRotate(numberFrom<short>(args));
    return open(11);
}

QString MessageRun::bStopPlay_callback(QString name, QString, MessageRun *)
{
    qDebug() << "bStopPlay_callback";
    guarded(name, false, [] { return bStopRec(); }); // whatever it does, the camera is closed
    CaptureImgThread::instance()->closeCamera();
    return repliedLater();
}

// The fourth source runs independently of the capture thread.
QString MessageRun::bStartPlay4_callback(QString name, QString, MessageRun *)
{
    return reply(name, bStartPlay4());
}

QString MessageRun::bStopPlay4_callback(QString name, QString, MessageRun *)
{
    return reply(name, bStopPlay4());
}

QString MessageRun::bAVPreview_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    const bool shown =
        fields.count() >= 2 && bAVPreview(fields.number<qint64>(0), fields.number<qint64>(1));
    QString text = reply(name, shown);
    if (shown) {
        open(1); // it took the camera: the main preview restarts, with a reply of its own
    }
    return text;
}

QString MessageRun::vSetPreviewEnable_callback(QString name, QString args, MessageRun *)
{
    CaptureImgThread::instance()->vSetPreviewEnable(numberFrom<int>(args) != 0);
    return reply(name, true);
}

QString MessageRun::bGetPreviewEnable_callback(QString name, QString, MessageRun *)
{
    qDebug() << "bGetPreviewEnable_callback";
    return reply(name, CaptureImgThread::instance()->bGetPreviewEnable());
}

QString MessageRun::vSetPreViewSize_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    if (fields.count() >= 2) {
        CaptureImgThread::instance()->vSetPreViewSize(fields.number<int>(0), fields.number<int>(1));
    }
    return reply(name);
}

QString MessageRun::vZoomIn_callback(QString name, QString, MessageRun *)
{
    CaptureImgThread::instance()->vZoomIn();
    return reply(name);
}

QString MessageRun::vZoomOut_callback(QString name, QString, MessageRun *)
{
    CaptureImgThread::instance()->vZoomOut();
    return reply(name);
}

QString MessageRun::vZoomOriginal_callback(QString name, QString, MessageRun *)
{
    CaptureImgThread::instance()->vZoomOriginal();
    return reply(name);
}

QString MessageRun::vSetZoomFactor_callback(QString name, QString args, MessageRun *)
{
    CaptureImgThread::instance()->vSetZoomFactor(numberFrom<int>(args));
    return reply(name);
}

QString MessageRun::vSetImageDispFlag_callback(QString name, QString args, MessageRun *)
{
    vSetImageDispFlag(numberFrom<int>(args) != 0);
    return reply(name);
}

// Not supported.
QString MessageRun::displayVideoPara_callback(QString name, QString, MessageRun *)
{
    return reply(name, false);
}

void MessageRun::OnSengImgMessage()
{
    cv::Mat frame;
    if (!m_pushImages || !getVideoFrameMat(frame) || frame.empty()) {
        return;
    }
    send_msg(QString::fromStdString(Mat2Base64(nearestScaled(frame, 800, 600), "JPG")));
}
