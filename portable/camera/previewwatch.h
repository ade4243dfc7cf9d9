// SPDX-License-Identifier: MIT
#pragma once

#include "portable/camera/cameraset.h"

#include <chrono>
#include <memory>

namespace portable {

/**
 * Tells the end of the preview from a change of cameras, during which there is none either, for
 * those who work along with the preview. An object belongs to one thread.
 */
class PreviewWatch
{
public:
    /// \param change  how long a change of cameras may take
    PreviewWatch(const CameraSet &cameras, std::chrono::milliseconds change);

    /// The camera of the preview; null while there is none.
    std::shared_ptr<Camera> camera();

    /**
     * Whether, by the last camera(), the preview had ended: announced (CameraSet::announceEnd), or
     * there was none for longer than a change takes.
     */
    bool ended() const { return m_ended; }

private:
    using Clock = std::chrono::steady_clock;

    const CameraSet &m_cameras;
    const std::chrono::milliseconds m_change;
    Clock::time_point m_seen; // when there was one last
    bool m_ended = false;
};

} // namespace portable
