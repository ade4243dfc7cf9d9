// SPDX-License-Identifier: MIT
#pragma once

#include "portable/camera/v4l2node.h"
#include "portable/picture/adjustments.h"

#include <map>

namespace portable {

/// The range of a camera control, in the driver's units.
struct ControlRange
{
    int minimum = 0;
    int maximum = 0;
    int step = 1;
    int defaultValue = 0;
};

/// Maps a level to a value, linearly: -100 minimum, 0 default, 100 maximum.
int controlValue(const ControlRange &range, int level);

/// The same for times, exponentially. Linear unless minimum and default are positive.
int exposureValue(const ControlRange &range, int level);

/**
 * The controls of a V4L2 camera (the kernel's "Video for Linux API", "User Controls" and "Camera
 * Control Reference"). Cameras may lack any of them. Values persist in the camera after it is
 * closed, so the destructor restores those that were changed.
 */
class V4l2Controls
{
public:
    explicit V4l2Controls(const QString &path);
    ~V4l2Controls();
    V4l2Controls(const V4l2Controls &) = delete;
    V4l2Controls &operator=(const V4l2Controls &) = delete;

    /// \return the adjustments for which the camera has no control
    Adjustments adjust(const Adjustments &wanted);

    /// Makes it focus once. \return false when it can't focus
    bool focus();

private:
    bool range(unsigned id, ControlRange *range) const;
    bool set(unsigned id, int value);
    bool setLevel(unsigned id, int level, int (*toValue)(const ControlRange &, int));
    bool setExposure(int level);

    const V4l2Node m_node;
    Adjustments m_adjusted;
    Adjustments m_remaining;
    std::map<unsigned, int> m_originals; // values before the first change
};

} // namespace portable
