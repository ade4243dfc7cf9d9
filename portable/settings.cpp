// SPDX-License-Identifier: MIT
#include "portable/settings.h"

namespace portable {

bool Settings::setRotation(int degrees)
{
    if (!isRotation(degrees)) {
        return false;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_orientation.rotation = degrees;
    ++m_revision;
    return true;
}

bool Settings::setFlip(int mode)
{
    if (!isFlip(mode)) {
        return false;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_orientation.flip = mode;
    ++m_revision;
    return true;
}

void Settings::setResolution(int camera, const cv::Size &size)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_resolutions[camera] = size;
    ++m_revision;
}

Settings::View Settings::view(int camera) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto resolution = m_resolutions.find(camera);
    return {m_orientation, resolution != m_resolutions.end() ? resolution->second : cv::Size(),
            m_revision};
}

Orientation Settings::orientation() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_orientation;
}

quint64 Settings::revision() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_revision;
}

} // namespace portable
