// SPDX-License-Identifier: MIT
#include "portable/camera/settings.h"

namespace portable {

namespace {

bool isWithin(qint64 value, qint64 min, qint64 max)
{
    return value >= min && value <= max;
}

} // namespace

bool Settings::setRotation(int degrees)
{
    if (!isRotation(degrees)) {
        return false;
    }
    changeFrames([=] { m_orientation.rotation = degrees; });
    return true;
}

bool Settings::setFlip(int mode)
{
    if (!isFlip(mode)) {
        return false;
    }
    changeFrames([=] { m_orientation.flip = mode; });
    return true;
}

void Settings::setResolution(int camera, const cv::Size &size)
{
    changeFrames([&] { m_resolutions[camera] = size; });
}

bool Settings::setAdjustment(int Adjustments::*which, int value)
{
    if (!isWithin(value, -100, 100)) {
        return false;
    }
    changeFrames([=] { m_adjustments.*which = value; });
    return true;
}

void Settings::focus()
{
    changeFrames([this] { ++m_focusRequest; });
}

bool Settings::setMode(int mode)
{
    if (!isWithin(mode, int(ShotMode::Whole), int(ShotMode::Page))) {
        return false;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_capture.mode = ShotMode(mode);
    return true;
}

bool Settings::setArea(int x1, int y1, int x2, int y2)
{
    const bool none = x1 == 0 && y1 == 0 && x2 == 0 && y2 == 0;
    if (!none && (x1 >= x2 || y1 >= y2)) {
        return false;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_capture.areaBegin = {x1, y1};
    m_capture.areaEnd = {x2, y2};
    return true;
}

bool Settings::setDpi(qint64 x, qint64 y)
{
    constexpr qint64 min = 50;
    constexpr qint64 max = 1200;
    if (!isWithin(x, min, max) || !isWithin(y, min, max)) {
        return false;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_capture.dpi = {int(x), int(y)};
    return true;
}

bool Settings::setQuality(int quality)
{
    if (!isWithin(quality, 1, 100)) {
        return false;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_capture.quality = quality;
    return true;
}

void Settings::changeWatermark(const std::function<void(Watermark &)> &change)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    change(m_capture.watermark);
}

bool Settings::setBookMode(int mode)
{
    if (!isWithin(mode, int(BookMode::LeftFirst), int(BookMode::BothInOne))) {
        return false;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_bookMode = BookMode(mode);
    return true;
}

BookMode Settings::bookMode() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_bookMode;
}

Settings::View Settings::view(int camera) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto resolution = m_resolutions.find(camera);
    return {m_orientation, resolution != m_resolutions.end() ? resolution->second : cv::Size(),
            m_adjustments, m_focusRequest, m_revision};
}

Orientation Settings::orientation() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_orientation;
}

CaptureSettings Settings::capture() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_capture;
}

quint64 Settings::revision() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_revision;
}

/// Makes a change that affects the frames.
void Settings::changeFrames(const std::function<void()> &change)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    change();
    ++m_revision;
}

} // namespace portable
