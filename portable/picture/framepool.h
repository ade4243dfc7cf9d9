// SPDX-License-Identifier: MIT
#pragma once

#include <opencv2/core.hpp>

#include <vector>

namespace portable {

/**
 * Frames that are reused once nobody holds them any longer, so that a preview doesn't allocate
 * (and fault in) megabytes for each picture. Used by one thread; its frames may be passed to any.
 */
class FramePool
{
public:
    /**
     * An 8-bit BGR matrix that nobody else holds; its content is undefined.
     * \param fresh  set to true for a new matrix, false for a reused one
     */
    cv::Mat take(const cv::Size &size, bool *fresh = nullptr);

    void clear() { m_frames.clear(); }

private:
    std::vector<cv::Mat> m_frames; // all of one size
};

} // namespace portable
