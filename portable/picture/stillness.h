// SPDX-License-Identifier: MIT
#pragma once

#include <opencv2/core.hpp>

#include <chrono>

namespace portable {

/**
 * Detects when something new has come to rest before the camera, from successive frames. Small
 * changes (noise, a clock, daylight) don't count as movement.
 */
class Stillness
{
public:
    using Clock = std::chrono::steady_clock;

    /// \param still  how long nothing must move after a movement
    explicit Stillness(std::chrono::milliseconds still);

    /**
     * Takes the next frame, 8-bit BGR; a few per second are enough.
     * \return true once after each movement, at the first frame after the rest
     */
    bool look(const cv::Mat &frame, Clock::time_point taken);

private:
    const std::chrono::milliseconds m_still;
    cv::Mat m_resting; // the scene since m_since, see essence()
    Clock::time_point m_since;
    bool m_hasMoved = false;
};

} // namespace portable
