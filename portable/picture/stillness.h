// SPDX-License-Identifier: MIT
#pragma once

#include <opencv2/core.hpp>

#include <chrono>

namespace portable {

/**
 * Finds the moments at which something new lies still before the camera, from its frames one after
 * the other. Small changes (noise, a clock, light that grows over minutes) are no movement.
 */
class Stillness
{
public:
    using Clock = std::chrono::steady_clock;

    /// \param still  how long nothing may move after something has
    explicit Stillness(std::chrono::milliseconds still);

    /**
     * Takes the next frame, 8-bit BGR; a few a second will do.
     * \return true once after each movement, at the first frame after the rest
     */
    bool look(const cv::Mat &frame, Clock::time_point taken);

private:
    const std::chrono::milliseconds m_still;
    cv::Mat m_resting; // what nothing has moved against since m_since; see essence()
    Clock::time_point m_since;
    bool m_hasMoved = false;
};

} // namespace portable
