// SPDX-License-Identifier: MIT
//
// Faces and liveness. docs/faces.md documents the numbers and texts.

#include "base/clock.h"
#include "base/mainthread.h"
#include "devicelib/biometrics.h"
#include "portable/base/failure.h"
#include "portable/face/livenesspage.h"
#include "portable/picture/picturereader.h"
#include "portable/picture/picturewriter.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <opencv2/imgproc.hpp>

#include <algorithm>

using namespace portable;

namespace {

constexpr int usualSeconds = 10;
constexpr int blockingSeconds = 8; // the caller's thread waits
constexpr int maxSeconds = 60;
constexpr int autoLivingBodySeconds = 15;
constexpr int pageSeconds = 20; // to read the hints, too
constexpr int shownSide = 800; // pixels, of the pictures that AutoLivingBody sends
constexpr int shownQuality = 75;

/// Logs a failure, if it is one; the engine logs its own.
void logFaceFailure(const char *function, const QString &picture, FaceFailure failure)
{
    if (failure != FaceFailure::None && failure != FaceFailure::NoEngine) {
        logFailure(function, picture + QStringLiteral(": ") + failureText(failure));
    }
}

FaceFailure describeFile(const char *function, const char *path, FaceDescriptor *descriptor)
{
    FaceEngine &engine = FaceEngine::instance();
    FaceFailure failure = engine.prepare();
    if (failure != FaceFailure::None) {
        return failure;
    }
    const QString name = QString::fromUtf8(path);
    QString error;
    const cv::Mat picture = readPicture(name, &error, biometricLimits);
    if (picture.empty()) {
        logFailure(function, name + QStringLiteral(": ") + error);
        return FaceFailure::Unreadable;
    }
    failure = engine.describe(picture, descriptor);
    logFaceFailure(function, name, failure);
    return failure;
}

FaceFailure describeLiveFrame(const char *function, FaceDescriptor *descriptor)
{
    FaceFailure failure = FaceEngine::instance().prepare();
    if (failure != FaceFailure::None) {
        return failure;
    }
    cv::Mat frame;
    failure = CameraSet::instance().currentFrame(frame)
        ? FaceEngine::instance().describe(frame, descriptor)
        : FaceFailure::NoCamera;
    logFaceFailure(function, QStringLiteral("live picture"), failure);
    return failure;
}

/// The score of two faces, or the failure of either.
template <class First, class Second> int compare(First describeFirst, Second describeSecond)
{
    FaceDescriptor first;
    FaceDescriptor second;
    FaceFailure failure = describeFirst(&first);
    if (failure == FaceFailure::None) {
        failure = describeSecond(&second);
    }
    return failure == FaceFailure::None ? faceScore(first, second) : int(failure);
}

int compareFiles(const char *function, const char *image1, const char *image2)
{
    const auto describe = [function](const char *path) {
        return [=](FaceDescriptor *face) { return describeFile(function, path, face); };
    };
    return compare(describe(image1), describe(image2));
}

/// The work with the camera: one job at a time.
BackgroundJob &cameraJob()
{
    struct CameraJob
    {
        CameraJob()
        {
            CameraSet::instance(); // destroyed after the job, like the engine
            FaceEngine::instance();
            job.closeWithApplication();
        }
        BackgroundJob job;
    };
    static CameraJob one;
    return one.job;
}

/**
 * Starts work with the camera in the background.
 * \return false, with a line in the log, without an engine or while other work uses the camera
 */
bool beginWithCamera(const char *function, BackgroundJob::Work work)
{
    if (FaceEngine::instance().prepare() != FaceFailure::None) {
        return false;
    }
    if (!cameraJob().begin(std::move(work))) {
        logFailure(function, failureText(FaceFailure::Busy));
        return false;
    }
    return true;
}

/// The deadline for a timeout that a page gave in seconds; 0 or less means the usual one.
BackgroundJob::Clock::time_point deadlineIn(int seconds)
{
    return base::Clock::shared().now()
        + std::chrono::seconds(seconds > 0 ? std::min(seconds, maxSeconds) : usualSeconds);
}

FaceFailure describeNextFace(const char *function, int seconds, const BackgroundJob::Stop &stop,
                             FaceDescriptor *descriptor)
{
    FaceCamera camera(CameraSet::instance());
    const FaceFailure failure =
        awaitFace(camera, FaceEngine::instance(), deadlineIn(seconds), stop, descriptor);
    if (!stop.isRequested()) {
        logFaceFailure(function, QStringLiteral("live pictures"), failure);
    }
    return failure;
}

/// \param onFrame  see checkLiveness()
bool livesBeforeCamera(const char *function, int seconds, const BackgroundJob::Stop &stop,
                       const FrameListener &onFrame = {})
{
    FaceCamera camera(CameraSet::instance());
    const LivenessResult result =
        checkLiveness(camera, FaceEngine::instance(), deadlineIn(seconds), stop, onFrame);
    if (!stop.isRequested()) {
        logFaceFailure(function, QStringLiteral("live pictures"), result.failure);
    }
    return result.passed;
}

QByteArray jpegText(const cv::Mat &frame)
{
    cv::Mat small = frame;
    const int side = std::max(frame.cols, frame.rows);
    if (side > shownSide) {
        const double scale = double(shownSide) / side;
        cv::resize(frame, small, {}, scale, scale, cv::INTER_AREA);
    }
    return jpegFile(small, shownQuality, {}).toBase64();
}

QByteArray resultText(const LivenessResult &result)
{
    const QString message = result.passed         ? QStringLiteral("活体检测通过")
        : result.failure == FaceFailure::NoCamera ? QStringLiteral("摄像头不可用")
        : result.failure == FaceFailure::NoFace   ? QStringLiteral("未检测到人脸")
        : result.failure != FaceFailure::None     ? QStringLiteral("人脸引擎不可用")
        : !result.hasBlinked                      ? QStringLiteral("未检测到眨眼")
                                                  : QStringLiteral("未检测到头部转动");
    const QJsonObject object{
        {QStringLiteral("result"), result.passed ? 1 : 0},
        {QStringLiteral("blink"), result.hasBlinked},
        {QStringLiteral("move"), result.hasMoved},
        {QStringLiteral("msg"), message},
        {QStringLiteral("image"),
         result.picture.empty() ? QString() : QString::fromLatin1(jpegText(result.picture))},
    };
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

} // namespace

namespace portable::api {

// Comparing

int lImageMatch(const char *image1, const char *image2)
{
    return compareFiles(__func__, image1, image2);
}

qint64 lImageIdMatch(const char *image1, const char *image2)
{
    return compareFiles(__func__, image1, image2);
}

bool bImageMatch(const char *image1, const char *image2)
{
    return compareFiles(__func__, image1, image2) >= samePersonScore;
}

qint64 lFaceMatch(const char *image)
{
    const char *const function = __func__;
    return compare([=](FaceDescriptor *face) { return describeFile(function, image, face); },
                   [=](FaceDescriptor *face) { return describeLiveFrame(function, face); });
}

bool bImageMatchOnline(const char *text, int a, int, int,
                       void (*onResult)(int result, void *context))
{
    const char *const function = __func__;
    return beginWithCamera(function, [=, path = QByteArray(text)](const BackgroundJob::Stop &stop) {
        const int score = compare(
            [&](FaceDescriptor *face) { return describeFile(function, path.constData(), face); },
            [&](FaceDescriptor *face) { return describeNextFace(function, a, stop, face); });
        return [=] { base::postToMainThread([=] { onResult(score, nullptr); }); };
    });
}

// Features

qint64 lFaceFeatureMatch(const char *feature1, const char *feature2)
{
    FaceDescriptor first;
    FaceDescriptor second;
    if (!readFaceFeature(feature1, &first) || !readFaceFeature(feature2, &second)) {
        logFailure(__func__, failureText(FaceFailure::NoFeature));
        return qint64(FaceFailure::NoFeature);
    }
    return faceScore(first, second);
}

bool bFaceFeatureGet(bool flag, const char *text1, const char *,
                     void (*onFeature)(const char *feature, void *context), void *context)
{
    FaceDescriptor face;
    const FaceFailure failure =
        flag ? describeFile(__func__, text1, &face) : describeLiveFrame(__func__, &face);
    if (failure != FaceFailure::None) {
        return false;
    }
    onFeature(faceFeature(face).toBase64().constData(), context);
    return true;
}

bool bFaceFeatureGetOnline(int a, int, void (*onFeature)(const char *feature, void *context))
{
    const char *const function = __func__;
    return beginWithCamera(function, [=](const BackgroundJob::Stop &stop) {
        FaceDescriptor face;
        const FaceFailure failure = describeNextFace(function, a, stop, &face);
        const QByteArray feature =
            failure == FaceFailure::None ? faceFeature(face).toBase64() : QByteArray("");
        return [=] { base::postToMainThread([=] { onFeature(feature.constData(), nullptr); }); };
    });
}

// Liveness

bool bLivingBodyDetect()
{
    if (FaceEngine::instance().prepare() != FaceFailure::None) {
        return false;
    }
    bool lives = false;
    const char *const function = __func__;
    if (!cameraJob().run([&](const BackgroundJob::Stop &stop) {
            lives = livesBeforeCamera(function, blockingSeconds, stop);
        })) {
        logFailure(function, failureText(FaceFailure::Busy));
    }
    return lives;
}

bool bLivingBodyDetectOnline(int a, int, void (*onResult)(int result, void *context))
{
    const char *const function = __func__;
    return beginWithCamera(function, [=](const BackgroundJob::Stop &stop) {
        const bool lives = livesBeforeCamera(function, a, stop);
        return [=] { base::postToMainThread([=] { onResult(lives ? 1 : 0, nullptr); }); };
    });
}

// Ends one that is still running: the page may have been reloaded.
bool AutoLivingBody(void (*onData)(const char *data, int length, int kind))
{
    const char *const function = __func__;
    cameraJob().stop();
    return beginWithCamera(function, [=](const BackgroundJob::Stop &stop) -> BackgroundJob::Answer {
        const auto send = [onData](const QByteArray &text, int kind) {
            onData(text.constData(), text.size(), kind);
        };
        FaceCamera camera(CameraSet::instance(), FaceCamera::Preview::Close);
        const LivenessResult result =
            checkLiveness(camera, FaceEngine::instance(), deadlineIn(autoLivingBodySeconds), stop,
                          [&](const cv::Mat &frame, const LivenessResult &) {
                              send(jpegText(frame), 0);
                              return true;
                          });
        if (stop.isRequested()) {
            return {};
        }
        logFaceFailure(function, QStringLiteral("live pictures"), result.failure);
        return [=] { send(resultText(result), 1); };
    });
}

// Ends any work with the camera; a pending result is delivered before, as a failure.
void CloseLivingBody(void (*onDone)())
{
    cameraJob().stop();
    base::postToMainThread(onDone);
}

void DemoUIShow(int, void (*onResult)(int result))
{
    const char *const function = __func__;
    const bool begun = beginWithCamera(function, [=](const BackgroundJob::Stop &stop) {
        LivenessPage page;
        const bool lives = livesBeforeCamera(
            function, pageSeconds, stop, [&](const cv::Mat &frame, const LivenessResult &soFar) {
                return page.show(frame, soFar);
            });
        return [=] { base::postToMainThread([=] { onResult(lives ? 1 : 0); }); };
    });
    if (!begun) {
        base::postToMainThread([onResult] { onResult(0); });
    }
}

} // namespace portable::api
