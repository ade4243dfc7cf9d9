// SPDX-License-Identifier: MIT
#pragma once

#include <opencv2/core.hpp>

#include <vector>

namespace portable {

/**
 * Frames that are used again once nobody holds them any more, so that a preview doesn't allocate
 * (and fault in) megabytes for each picture. Belongs to one thread; its frames may go anywhere.
 */
class FramePool
{
public:
    /**
     * An 8-bit BGR matrix that nobody else holds.
     * \param fresh  set to whether it is new, and not one that was handed out before
     */
    cv::Mat take(const cv::Size &size, bool *fresh = nullptr);

    void clear() { m_frames.clear(); }

private:
    std::vector<cv::Mat> m_frames; // all of one size
};

} // namespace portable
