// SPDX-License-Identifier: MIT
#include "portable/face/facewatch.h"

#include "base/clock.h"
#include "portable/face/liveness.h"

#include <algorithm>

namespace portable {

namespace {

constexpr std::chrono::milliseconds framePause{80};
constexpr std::chrono::milliseconds retryPause{20};
constexpr std::chrono::seconds maxLoss{2}; // of the camera
constexpr int faceCamera = 2; // a terminal's second camera, beside its document camera
constexpr int onlyCamera = 1;

BackgroundJob::Clock::time_point now()
{
    return base::Clock::shared().now();
}

} // namespace

FaceCamera::FaceCamera(CameraSet &cameras, Preview preview)
    : m_cameras(cameras)
{
    cv::Mat frame;
    const auto open = cameras.mainCamera();
    if (open || cameras.currentFrame(frame)) {
        m_stopped = preview == Preview::Close ? open : nullptr;
    } else {
        m_stopped = cameras.open(faceCamera);
        if (!m_stopped) {
            m_stopped = cameras.open(onlyCamera);
        }
    }
}

FaceCamera::~FaceCamera()
{
    m_cameras.stop(m_stopped);
}

bool FaceCamera::next(cv::Mat &frame, BackgroundJob::Clock::time_point deadline,
                      const BackgroundJob::Stop &stop)
{
    const BackgroundJob::Clock::time_point due = std::max(m_due, now());
    if (due >= deadline || stop.sleepUntil(due)) {
        return false;
    }
    m_due = due + framePause;
    const BackgroundJob::Clock::time_point lost = std::min(deadline, due + maxLoss);
    while (!m_cameras.currentFrame(frame)) {
        if (now() >= lost || stop.sleepUntil(now() + retryPause)) {
            return false;
        }
    }
    return true;
}

FaceFailure awaitFace(FaceCamera &camera, FaceEngine &engine,
                      BackgroundJob::Clock::time_point deadline, const BackgroundJob::Stop &stop,
                      FaceDescriptor *descriptor)
{
    FaceFailure failure = FaceFailure::NoCamera; // until the first frame
    cv::Mat frame;
    while (camera.next(frame, deadline, stop)) {
        SeenFace face;
        failure = engine.findFast(frame, &face);
        if (failure == FaceFailure::None) {
            return engine.describe(frame, face, descriptor);
        }
        if (failure != FaceFailure::NoFace) {
            break;
        }
    }
    return failure;
}

LivenessResult checkLiveness(FaceCamera &camera, FaceEngine &engine,
                             BackgroundJob::Clock::time_point deadline,
                             const BackgroundJob::Stop &stop, const FrameListener &onFrame)
{
    LivenessResult result;
    LivenessCheck check;
    const BackgroundJob::Clock::time_point begin = now();
    cv::Mat frame;
    while (!result.passed && camera.next(frame, deadline, stop)) {
        const std::chrono::duration<double> time = now() - begin;
        if (onFrame && !onFrame(frame, result)) {
            break;
        }
        SeenFace face;
        const FaceFailure failure = engine.findFast(frame, &face);
        if (failure == FaceFailure::NoFace) {
            if (result.picture.empty()) {
                result.failure = failure;
            }
            continue;
        }
        result.failure = failure;
        if (failure != FaceFailure::None) {
            break;
        }
        if (!check.add(sampleOf(frame, face, time.count()))) {
            result.picture = frame; // the first frame of this person
        }
        result.hasBlinked = check.hasBlinked();
        result.hasMoved = check.hasMoved();
        result.passed = check.hasPassed();
    }
    return result;
}

} // namespace portable
