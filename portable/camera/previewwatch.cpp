// SPDX-License-Identifier: MIT
#include "portable/camera/previewwatch.h"

namespace portable {

PreviewWatch::PreviewWatch(const CameraSet &cameras, std::chrono::milliseconds change)
    : m_cameras(cameras)
    , m_change(change)
    , m_seen(Clock::now())
{
}

std::shared_ptr<Camera> PreviewWatch::camera()
{
    auto camera = m_cameras.mainCamera();
    const auto now = Clock::now();
    m_ended = !camera && (m_cameras.hasEnded() || now - m_seen > m_change);
    if (camera) {
        m_seen = now;
    }
    return camera;
}

} // namespace portable
