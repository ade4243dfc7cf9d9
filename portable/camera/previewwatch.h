// SPDX-License-Identifier: MIT
#pragma once

#include "base/clock.h"
#include "portable/camera/cameraset.h"

#include <memory>

namespace portable {

/**
 * Distinguishes the end of the preview from a switch of cameras, during which there is none either.
 * For work that follows the preview. Not thread-safe.
 */
class PreviewWatch
{
public:
    PreviewWatch(const CameraSet &cameras, const base::Clock &clock);

    /// The preview's camera; null while there is none.
    std::shared_ptr<Camera> camera();

    /**
     * Whether the preview had ended at the last camera(): announced (CameraSet::announceEnd), or
     * absent for longer than cameraChangeLimit.
     */
    bool ended() const { return m_ended; }

private:
    const CameraSet &m_cameras;
    const base::Clock &m_clock;
    base::Clock::TimePoint m_seen; // when camera() last found one
    bool m_ended = false;
};

} // namespace portable
