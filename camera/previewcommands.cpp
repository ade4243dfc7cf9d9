// SPDX-License-Identifier: MIT
//
// The preview commands. Starting and stopping is the capture thread's work, and the answer comes
// from there when it is done; the others answer at once.

#include "camera/captureimgthread.h"
#include "camera/mat2base64.h"
#include "devicelib/doccamera.h"
#include "dispatch/arguments.h"
#include "dispatch/messagerun.h"

#include <QDebug>
#include <opencv2/imgproc.hpp>

namespace {

/// What a callback returns whose answer comes later; nobody looks at it.
QString answeredLater()
{
    return QStringLiteral(" ");
}

QString open(int camera)
{
    CaptureImgThread::instance()->openCamera(camera);
    return answeredLater();
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

QString MessageRun::bStopPlay_callback(QString, QString, MessageRun *)
{
    qDebug() << "bStopPlay_callback";
    bStopRec();
    CaptureImgThread::instance()->closeCamera();
    return answeredLater();
}

// The fourth source runs beside the capture thread, which knows nothing of it.
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
    const QString text = reply(name, shown);
    if (shown) {
        open(1); // it has taken the camera: the main preview begins anew, with an answer of its own
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

// Accepted, not supported.
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
    cv::Mat scaled;
    cv::resize(frame, scaled, cv::Size(800, 600), 0, 0, cv::INTER_NEAREST);
    send_msg(QString::fromStdString(Mat2Base64(scaled, "JPG")));
}
