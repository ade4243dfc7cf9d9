// SPDX-License-Identifier: MIT
#include "portable/finger/fingersensor.h"

#include "base/clock.h"
#include "portable/base/failure.h"
#include "portable/finger/fingerprint.h"
#include "portable/picture/picturereader.h"

#include <QBuffer>
#include <QDir>
#include <QImage>
#include <opencv2/imgproc.hpp>

#include <algorithm>

namespace portable {

namespace {

constexpr std::chrono::milliseconds lookPause{200};
constexpr int goodQuality = 50;

QByteArray pngText(const cv::Mat &gray)
{
    const uchar *pixels = gray.data;
    QByteArray bytes;
    QBuffer buffer(&bytes);
    QImage(pixels, gray.cols, gray.rows, int(gray.step), QImage::Format_Grayscale8)
        .save(&buffer, "PNG");
    return bytes.toBase64();
}

} // namespace

FingerCapture failedCapture(FingerCapture::Failure failure)
{
    FingerCapture capture;
    capture.score = failure;
    capture.message = failure == FingerCapture::Busy ? "指纹仪正在采集"
        : failure == FingerCapture::Unreadable       ? "指纹图像无法识别"
        : failure == FingerCapture::NoSensor         ? "未连接指纹仪"
                                                     : "未检测到手指";
    return capture;
}

FingerCapture captureOf(const cv::Mat &gray, bool isSimulated)
{
    const Fingerprint print = readFingerprint(gray);
    if (print.quality <= 0) {
        return failedCapture(FingerCapture::Unreadable);
    }
    FingerCapture capture;
    capture.score = print.quality;
    capture.image = pngText(gray);
    capture.feature = fingerFeature(print.minutiae).toHex();
    if (print.quality < goodQuality) {
        capture.message =
            isSimulated ? "指纹质量较低，建议重新采集（仿真）" : "指纹质量较低，建议重新采集";
    } else {
        capture.message = isSimulated ? "采集成功（仿真）" : "采集成功";
    }
    return capture;
}

FingerSensor::FingerSensor(std::function<QString()> folder, std::function<QString()> finger)
    : m_folder(std::move(folder))
    , m_finger(std::move(finger))
{
}

FingerCapture FingerSensor::capture(BackgroundJob::Clock::time_point deadline,
                                    const BackgroundJob::Stop &stop) const
{
    base::Clock &clock = base::Clock::shared();
    FingerCapture capture = failedCapture(FingerCapture::NoFinger);
    QString why;
    do {
        const QString path = fingerOnSensor(&why);
        cv::Mat picture = path.isEmpty() ? cv::Mat() : readPicture(path, &why, biometricLimits);
        if (!picture.empty()) {
            cv::cvtColor(picture, picture, cv::COLOR_BGR2GRAY);
            capture = captureOf(picture, true);
            if (capture.score < 0) {
                logFailure("fingerprint sensor", path + QStringLiteral(" shows no finger"));
            }
            return capture;
        }
        if (!path.isEmpty()) { // may still be being written
            prefixError(path, &why);
            capture = failedCapture(FingerCapture::Unreadable);
        }
    } while (clock.now() < deadline
             && !stop.sleepUntil(std::min(deadline, clock.now() + lookPause)));
    if (!stop.isRequested()) {
        logFailure("fingerprint sensor", QStringLiteral("no finger: ") + why);
    }
    return capture;
}

/// Path of the finger's picture; empty, with the reason in `why`, without one.
QString FingerSensor::fingerOnSensor(QString *why) const
{
    const QString finger = m_finger();
    const QDir folder(m_folder());
    if (finger == QLatin1String("none")) {
        *why = QStringLiteral("devices.ini sets it to \"none\"");
        return {};
    }
    if (!finger.isEmpty()) {
        *why = folder.filePath(finger) + QStringLiteral(" doesn't exist");
        return folder.exists(finger) ? folder.filePath(finger) : QString();
    }
    const QStringList files = folder.entryList(QDir::Files, QDir::Name);
    *why = folder.path() + QStringLiteral(" has no files");
    return files.isEmpty() ? QString() : folder.filePath(files.first());
}

} // namespace portable
