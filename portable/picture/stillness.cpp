// SPDX-License-Identifier: MIT
#include "portable/picture/stillness.h"

#include <opencv2/imgproc.hpp>

namespace portable {

namespace {

const cv::Size essenceSize(96, 54);

/**
 * In grey levels, on average over the picture. Measured on the desk scene: its clock makes 0.3,
 * strong noise (sigma 8) 0.5 to 1, a card laid on the desk 1.6, a page moved by 4 pixels 5 and
 * more.
 */
constexpr double movement = 1.2;

/// How fast, from look to look, slow changes become part of the picture at rest.
constexpr double following = 0.1;

/// A frame without its noise and its brightness, which lamps and automatic exposure change.
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
