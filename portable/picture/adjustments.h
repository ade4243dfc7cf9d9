// SPDX-License-Identifier: MIT
#pragma once

#include <opencv2/core.hpp>

namespace portable {

/// Brightness settings of a camera; each -100 to 100, 0 is the camera's own default.
struct Adjustments
{
    int exposure = 0;
    int brightness = 0;
    int contrast = 0;

    bool isNeutral() const { return exposure == 0 && brightness == 0 && contrast == 0; }
    bool operator==(const Adjustments &other) const
    {
        return exposure == other.exposure && brightness == other.brightness
            && contrast == other.contrast;
    }
    bool operator!=(const Adjustments &other) const { return !(*this == other); }
};

/**
 * The new value of each of the 256, for cv::LUT: adjusts pictures in software where the source
 * can't. Each 50 of exposure doubles the light, each 50 of contrast doubles the distance from
 * middle grey, and brightness adds up to half of the scale. Empty when all are 0.
 */
cv::Mat toneTable(const Adjustments &adjustments);

} // namespace portable
