// SPDX-License-Identifier: MIT
#pragma once

#include "portable/camera/cameraset.h"

#include <chrono>
#include <memory>

namespace portable {

/**
 * Distinguishes the end of the preview from a switch of cameras, during which there is none either.
 * For work that follows the preview. Not thread-safe.
 */
class PreviewWatch
{
public:
    /// \param change  how long a switch of cameras may take
    PreviewWatch(const CameraSet &cameras, std::chrono::milliseconds change);

    /// The preview's camera; null while there is none.
    std::shared_ptr<Camera> camera();

    /**
     * Whether the preview had ended at the last camera(): announced (CameraSet::announceEnd), or
     * absent for longer than a switch may take.
     */
    bool ended() const { return m_ended; }

private:
    using Clock = std::chrono::steady_clock;

    const CameraSet &m_cameras;
    const std::chrono::milliseconds m_change;
    Clock::time_point m_seen; // when camera() last found one
    bool m_ended = false;
};

} // namespace portable
