// SPDX-License-Identifier: MIT
#include "portable/camera/v4l2controls.h"

#include <linux/videodev2.h>

#include <algorithm>
#include <cmath>

namespace portable {

namespace {

/// The nearest value on the range's steps.
int onStep(const ControlRange &range, double value)
{
    const double step = std::max(1, range.step);
    const double steps = std::round((value - range.minimum) / step);
    return int(
        std::clamp(range.minimum + steps * step, double(range.minimum), double(range.maximum)));
}

} // namespace

int controlValue(const ControlRange &range, int level)
{
    const double end = level < 0 ? range.minimum : range.maximum;
    return onStep(range, range.defaultValue + (end - range.defaultValue) * std::abs(level) / 100.0);
}

int exposureValue(const ControlRange &range, int level)
{
    if (range.minimum <= 0 || range.defaultValue <= 0) {
        return controlValue(range, level);
    }
    const double end = level < 0 ? range.minimum : range.maximum;
    return onStep(range,
                  range.defaultValue * std::pow(end / range.defaultValue, std::abs(level) / 100.0));
}

V4l2Controls::V4l2Controls(const QString &path)
    : m_node(path)
{
}

V4l2Controls::~V4l2Controls()
{
    // Exposure can't be set while it is automatic, so the mode is restored last.
    const std::map<unsigned, int> originals = m_originals; // set() adds to it
    for (const auto &control : originals) {
        if (control.first != V4L2_CID_EXPOSURE_AUTO) {
            set(control.first, control.second);
        }
    }
    const auto automatic = originals.find(V4L2_CID_EXPOSURE_AUTO);
    if (automatic != originals.end()) {
        set(automatic->first, automatic->second);
    }
}

Adjustments V4l2Controls::adjust(const Adjustments &wanted)
{
    if (wanted.brightness != m_adjusted.brightness) {
        const bool isSet = setLevel(V4L2_CID_BRIGHTNESS, wanted.brightness, controlValue);
        m_remaining.brightness = isSet ? 0 : wanted.brightness;
    }
    if (wanted.contrast != m_adjusted.contrast) {
        const bool isSet = setLevel(V4L2_CID_CONTRAST, wanted.contrast, controlValue);
        m_remaining.contrast = isSet ? 0 : wanted.contrast;
    }
    if (wanted.exposure != m_adjusted.exposure) {
        m_remaining.exposure = setExposure(wanted.exposure) ? 0 : wanted.exposure;
    }
    m_adjusted = wanted;
    return m_remaining;
}

bool V4l2Controls::focus()
{
    auto button = zeroed<v4l2_control>();
    button.id = V4L2_CID_AUTO_FOCUS_START;
    if (m_node.ioctl(VIDIOC_S_CTRL, button)) {
        return true;
    }
    // Continuous autofocus starts over when it is switched on.
    set(V4L2_CID_FOCUS_AUTO, 0);
    return set(V4L2_CID_FOCUS_AUTO, 1);
}

bool V4l2Controls::range(unsigned id, ControlRange *range) const
{
    auto query = zeroed<v4l2_queryctrl>();
    query.id = id;
    if (!m_node.ioctl(VIDIOC_QUERYCTRL, query)
        || (query.flags & (V4L2_CTRL_FLAG_DISABLED | V4L2_CTRL_FLAG_READ_ONLY)) != 0) {
        return false;
    }
    *range = {query.minimum, query.maximum, query.step, query.default_value};
    return true;
}

bool V4l2Controls::set(unsigned id, int value)
{
    auto control = zeroed<v4l2_control>();
    control.id = id;
    if (!m_node.ioctl(VIDIOC_G_CTRL, control)) {
        return false;
    }
    m_originals.emplace(id, control.value);
    control.value = value;
    return m_node.ioctl(VIDIOC_S_CTRL, control);
}

bool V4l2Controls::setLevel(unsigned id, int level, int (*toValue)(const ControlRange &, int))
{
    ControlRange found;
    return range(id, &found) && set(id, toValue(found, level));
}

/// 0 returns to automatic exposure where the camera has it.
bool V4l2Controls::setExposure(int level)
{
    set(V4L2_CID_EXPOSURE_AUTO, V4L2_EXPOSURE_MANUAL); // fails on cameras without a mode
    const bool isSet = setLevel(V4L2_CID_EXPOSURE_ABSOLUTE, level, exposureValue)
        || setLevel(V4L2_CID_EXPOSURE, level, controlValue);
    ControlRange automatic;
    if ((level == 0 || !isSet) && range(V4L2_CID_EXPOSURE_AUTO, &automatic)) {
        set(V4L2_CID_EXPOSURE_AUTO, automatic.defaultValue);
    }
    return isSet;
}

} // namespace portable
