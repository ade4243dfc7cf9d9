// SPDX-License-Identifier: MIT
/// \file Faces in front of a camera: waiting for one, liveness check.
#pragma once

#include "portable/base/backgroundjob.h"
#include "portable/camera/cameraset.h"
#include "portable/face/faceengine.h"

#include <functional>
#include <memory>

namespace portable {

/**
 * The camera in which faces are searched: the open one, the main preview's before camera 4. When
 * none is open, it opens camera 2, or else 1, and stops it in its destructor.
 */
class FaceCamera
{
public:
    /// Whether the destructor also stops the main preview's camera when that was open before.
    enum class Preview { Keep, Close };

    explicit FaceCamera(CameraSet &cameras, Preview preview = Preview::Keep);
    ~FaceCamera();
    FaceCamera(const FaceCamera &) = delete;
    FaceCamera &operator=(const FaceCamera &) = delete;

    /**
     * Waits for the next frame; at most about twelve a second. A lost camera gets two seconds to
     * come back.
     * \return false without a camera, at `deadline` or when a stop is requested
     */
    bool next(cv::Mat &frame, BackgroundJob::Clock::time_point deadline,
              const BackgroundJob::Stop &stop);

private:
    CameraSet &m_cameras;
    std::shared_ptr<Camera> m_stopped; // by the destructor; null: no camera
    BackgroundJob::Clock::time_point m_due; // earliest time of the next frame
};

/// Waits for a face and describes it. \return NoFace when none came before the deadline
FaceFailure awaitFace(FaceCamera &camera, FaceEngine &engine,
                      BackgroundJob::Clock::time_point deadline, const BackgroundJob::Stop &stop,
                      FaceDescriptor *descriptor);

/// Outcome of a liveness check, or how far it has got.
struct LivenessResult
{
    FaceFailure failure = FaceFailure::NoCamera; ///< Why there was nothing to judge, or None.
    bool hasBlinked = false;
    bool hasMoved = false;
    bool passed = false;
    cv::Mat picture; ///< First frame with the face; empty without one.
};

using FrameListener = std::function<bool(const cv::Mat &frame, const LivenessResult &soFar)>;

/**
 * Checks for a living face until it passes, or until the deadline.
 * \param onFrame  called with every frame and the result so far, on the caller's thread; false ends
 *                 the check
 */
LivenessResult checkLiveness(FaceCamera &camera, FaceEngine &engine,
                             BackgroundJob::Clock::time_point deadline,
                             const BackgroundJob::Stop &stop, const FrameListener &onFrame = {});

} // namespace portable
