// SPDX-License-Identifier: MIT
/// \file The page that a person sees during a liveness check.
#pragma once

#include "portable/camera/pagewindow.h"
#include "portable/face/facewatch.h"

#include <QImage>

#include <memory>

namespace portable {

/// What the person is to do next, such as 请眨眼.
QString livenessHint(const LivenessResult &progress);

/**
 * The content of the page: the camera's picture as in a mirror, the hint, and which of the steps
 * are done.
 * \param size      of the page, in pixels
 * \param picture   8-bit RGB, may be null
 * \param progress  of the check
 */
QImage paintLivenessPage(const QSize &size, const QImage &picture, const LivenessResult &progress);

/**
 * The page in a window of its own while the object lives: on the second screen, which is the
 * customer's, if there is one. May be used by any thread. Without a display nothing is seen, which
 * the log says.
 */
class LivenessPage
{
public:
    LivenessPage();

    /**
     * Shows a frame, 8-bit BGR, and the hint that goes with it. Doesn't wait for the main thread;
     * what that is too busy to show is dropped.
     * \return false once the window was closed by the person
     */
    bool show(const cv::Mat &frame, const LivenessResult &progress);

private:
    struct Content;

    const std::shared_ptr<Content> m_content;
    PageWindow m_window;
};

} // namespace portable
