// SPDX-License-Identifier: MIT
/// \file What is done with the faces before a camera: waiting for one, checking that it lives.
#pragma once

#include "portable/base/backgroundjob.h"
#include "portable/camera/cameraset.h"
#include "portable/face/faceengine.h"

#include <functional>
#include <memory>

namespace portable {

/**
 * The camera that faces are looked for with: the one that is open, the main preview's before camera
 * 4; when none is, camera 2, or else 1, as long as the object lives.
 */
class FaceCamera
{
public:
    enum class Former { keeps, isClosed }; ///< What becomes of a preview that was open before.

    explicit FaceCamera(CameraSet &cameras, Former former = Former::keeps);
    ~FaceCamera();
    FaceCamera(const FaceCamera &) = delete;
    FaceCamera &operator=(const FaceCamera &) = delete;

    /**
     * Some twelve pictures a second. A camera that was lost is waited for, for two seconds.
     * \return false when there is none, at `deadline`, and when the work is to end
     */
    bool next(cv::Mat &frame, BackgroundJob::Clock::time_point deadline,
              const BackgroundJob::Stop &stop);

private:
    CameraSet &m_cameras;
    std::shared_ptr<Camera> m_closed; // when this object goes, if it still is open; null for none
    BackgroundJob::Clock::time_point m_due; // of the next picture
};

/// Waits for a face and describes it. \return noFace when none came before the deadline
FaceFailure awaitFace(FaceCamera &camera, FaceEngine &engine,
                      BackgroundJob::Clock::time_point deadline, const BackgroundJob::Stop &stop,
                      FaceDescriptor *descriptor);

/// What a liveness check has found.
struct LivenessResult
{
    FaceFailure failure = FaceFailure::noCamera; ///< Why there was nothing to judge; or none.
    bool hasBlinked = false;
    bool hasMoved = false;
    bool passed = false;
    cv::Mat picture; ///< Of the face, the first of it; empty without one.
};

/**
 * Checks until it is passed, or the deadline.
 * \param onFrame  receives every picture
 */
LivenessResult checkLiveness(FaceCamera &camera, FaceEngine &engine,
                             BackgroundJob::Clock::time_point deadline,
                             const BackgroundJob::Stop &stop,
                             const std::function<void(const cv::Mat &)> &onFrame = {});

} // namespace portable
