// SPDX-License-Identifier: MIT
#include "portable/picture/stillness.h"

#include <opencv2/imgproc.hpp>

namespace portable {

namespace {

const cv::Size essenceSize(96, 54);

/**
 * Mean difference in grey levels. Measured on the test scene: its clock causes 0.3, strong noise
 * (sigma 8) 0.5 to 1, a card laid on the desk 1.6, a page moved by 4 pixels 5 and more.
 */
constexpr double movement = 1.2;

/// The share of each new frame in the picture at rest, which thus follows slow changes.
constexpr double following = 0.1;

/// A frame without noise and without its mean brightness, which lamps and auto exposure change.
cv::Mat essence(const cv::Mat &frame)
{
    cv::Mat small;
    cv::resize(frame, small, essenceSize, 0, 0, cv::INTER_AREA);
    cv::Mat grey;
    cv::cvtColor(small, grey, cv::COLOR_BGR2GRAY);
    grey.convertTo(grey, CV_32F, 1, -cv::mean(grey)[0]);
    return grey;
}

} // namespace

Stillness::Stillness(std::chrono::milliseconds still)
    : m_still(still)
{
}

bool Stillness::look(const cv::Mat &frame, Clock::time_point taken)
{
    const cv::Mat now = essence(frame);
    const bool isFirst = m_resting.empty();
    if (isFirst || cv::norm(m_resting, now, cv::NORM_L1) > movement * essenceSize.area()) {
        m_resting = now;
        m_since = taken;
        m_hasMoved = !isFirst;
        return false;
    }
    if (!m_hasMoved) {
        cv::accumulateWeighted(now, m_resting, following);
        return false;
    }
    m_hasMoved = taken - m_since < m_still;
    return !m_hasMoved;
}

} // namespace portable
