// SPDX-License-Identifier: MIT
#include "portable/camera/previewwatch.h"

namespace portable {

PreviewWatch::PreviewWatch(const CameraSet &cameras, const base::Clock &clock)
    : m_cameras(cameras)
    , m_clock(clock)
    , m_seen(clock.now())
{
}

std::shared_ptr<Camera> PreviewWatch::camera()
{
    auto camera = m_cameras.mainCamera();
    const auto now = m_clock.now();
    m_ended = !camera && (m_cameras.hasEnded() || now - m_seen > cameraChangeLimit);
    if (camera) {
        m_seen = now;
    }
    return camera;
}

} // namespace portable
