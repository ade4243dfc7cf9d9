// SPDX-License-Identifier: MIT
#include "portable/camera/v4l2controls.h"

#include <linux/videodev2.h>

#include <algorithm>
#include <cmath>

namespace portable {

namespace {

/// The nearest value that the range's steps allow.
int onStep(const ControlRange &range, double value)
{
    const double step = std::max(1, range.step);
    const double steps = std::round((value - range.minimum) / step);
    return int(
        std::clamp(range.minimum + steps * step, double(range.minimum), double(range.maximum)));
}

} // namespace

int controlValue(const ControlRange &range, int place)
{
    const double end = place < 0 ? range.minimum : range.maximum;
    return onStep(range, range.usual + (end - range.usual) * std::abs(place) / 100.0);
}

int exposureValue(const ControlRange &range, int place)
{
    if (range.minimum <= 0 || range.usual <= 0) {
        return controlValue(range, place);
    }
    const double end = place < 0 ? range.minimum : range.maximum;
    return onStep(range, range.usual * std::pow(end / range.usual, std::abs(place) / 100.0));
}

V4l2Controls::V4l2Controls(const QString &path)
    : m_node(path)
{
}

V4l2Controls::~V4l2Controls()
{
    // Exposure can't be set while it is automatic, so what switches that comes last.
    const std::map<unsigned, int> found = m_found;
    for (const auto &control : found) {
        if (control.first != V4L2_CID_EXPOSURE_AUTO) {
            set(control.first, control.second);
        }
    }
    const auto automatic = found.find(V4L2_CID_EXPOSURE_AUTO);
    if (automatic != found.end()) {
        set(automatic->first, automatic->second);
    }
}

Adjustments V4l2Controls::adjust(const Adjustments &wanted)
{
    if (wanted.brightness != m_adjusted.brightness) {
        const bool isSet = setPlace(V4L2_CID_BRIGHTNESS, wanted.brightness, controlValue);
        m_left.brightness = isSet ? 0 : wanted.brightness;
    }
    if (wanted.contrast != m_adjusted.contrast) {
        const bool isSet = setPlace(V4L2_CID_CONTRAST, wanted.contrast, controlValue);
        m_left.contrast = isSet ? 0 : wanted.contrast;
    }
    if (wanted.exposure != m_adjusted.exposure) {
        m_left.exposure = setExposure(wanted.exposure) ? 0 : wanted.exposure;
    }
    m_adjusted = wanted;
    return m_left;
}

bool V4l2Controls::focus()
{
    auto button = zeroed<v4l2_control>();
    button.id = V4L2_CID_AUTO_FOCUS_START;
    if (m_node.ask(VIDIOC_S_CTRL, button)) {
        return true;
    }
    // Where focusing is automatic at all times it begins anew when it is switched on.
    set(V4L2_CID_FOCUS_AUTO, 0);
    return set(V4L2_CID_FOCUS_AUTO, 1);
}

bool V4l2Controls::range(unsigned id, ControlRange *range) const
{
    auto query = zeroed<v4l2_queryctrl>();
    query.id = id;
    if (!m_node.ask(VIDIOC_QUERYCTRL, query)
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
    if (!m_node.ask(VIDIOC_G_CTRL, control)) {
        return false;
    }
    m_found.emplace(id, control.value);
    control.value = value;
    return m_node.ask(VIDIOC_S_CTRL, control);
}

bool V4l2Controls::setPlace(unsigned id, int place, int (*valueAt)(const ControlRange &, int))
{
    ControlRange found;
    return range(id, &found) && set(id, valueAt(found, place));
}

/// 0 leaves it to the camera where that can do it by itself.
bool V4l2Controls::setExposure(int place)
{
    set(V4L2_CID_EXPOSURE_AUTO, V4L2_EXPOSURE_MANUAL); // some cameras know nothing else
    const bool isSet = setPlace(V4L2_CID_EXPOSURE_ABSOLUTE, place, exposureValue)
        || setPlace(V4L2_CID_EXPOSURE, place, controlValue);
    ControlRange automatic;
    if ((place == 0 || !isSet) && range(V4L2_CID_EXPOSURE_AUTO, &automatic)) {
        set(V4L2_CID_EXPOSURE_AUTO, automatic.usual);
    }
    return isSet;
}

} // namespace portable
