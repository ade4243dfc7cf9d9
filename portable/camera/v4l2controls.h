// SPDX-License-Identifier: MIT
#pragma once

#include "portable/camera/v4l2node.h"
#include "portable/picture/adjustments.h"

#include <map>

namespace portable {

/// Where a control of a camera may stand, in the driver's own units.
struct ControlRange
{
    int minimum = 0;
    int maximum = 0;
    int step = 1;
    int usual = 0; ///< The driver's default.
};

/// The value for a place from -100, the minimum, over 0, the usual, to 100, the maximum.
int controlValue(const ControlRange &range, int place);

/// The same for times, in even ratios instead of even steps. Minimum and usual are positive.
int exposureValue(const ControlRange &range, int place);

/**
 * The controls of a V4L2 camera (the kernel's "Video for Linux API", "User Controls" and "Camera
 * Control Reference"). Some cameras lack some. They keep their values when nobody has them open, so
 * the end of the object puts those that were changed back.
 */
class V4l2Controls
{
public:
    explicit V4l2Controls(const QString &path);
    ~V4l2Controls();
    V4l2Controls(const V4l2Controls &) = delete;
    V4l2Controls &operator=(const V4l2Controls &) = delete;

    /// \return what the camera has no control for
    Adjustments adjust(const Adjustments &wanted);

    /// Lets it focus once. \return false when it has no focus to set
    bool focus();

private:
    bool range(unsigned id, ControlRange *range) const;
    bool set(unsigned id, int value);
    bool setPlace(unsigned id, int place, int (*valueAt)(const ControlRange &, int));
    bool setExposure(int place);

    const V4l2Node m_node;
    Adjustments m_adjusted;
    Adjustments m_left;
    std::map<unsigned, int> m_found; // values before the first change
};

} // namespace portable
