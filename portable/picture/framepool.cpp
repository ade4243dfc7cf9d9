// SPDX-License-Identifier: MIT
#include "portable/picture/framepool.h"

namespace portable {

namespace {

/// More are in use only when a reader hoards frames; the surplus is not kept afterwards.
constexpr size_t capacity = 6;

/// Whether the pool holds the only reference. Synchronizes with its former holders.
bool isFree(const cv::Mat &frame)
{
    return CV_XADD(&frame.u->refcount, 0) == 1;
}

} // namespace

cv::Mat FramePool::take(const cv::Size &size, bool *fresh)
{
    if (size.empty()) {
        return cv::Mat();
    }
    if (!m_frames.empty() && m_frames.front().size() != size) {
        m_frames.clear();
    }
    for (const cv::Mat &frame : m_frames) {
        if (isFree(frame)) {
            if (fresh) {
                *fresh = false;
            }
            return frame;
        }
    }
    cv::Mat frame(size, CV_8UC3);
    if (m_frames.size() < capacity) {
        m_frames.push_back(frame);
    }
    if (fresh) {
        *fresh = true;
    }
    return frame;
}

} // namespace portable
