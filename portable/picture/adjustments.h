// SPDX-License-Identifier: MIT
#pragma once

#include <opencv2/core.hpp>

namespace portable {

/// How bright a camera's pictures come; each -100 to 100, 0 is how the camera is by itself.
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
 * The new value of each of the 256, for cv::LUT; how pictures are adjusted whose source can't do
 * it. Exposure doubles or halves the light with each 50, contrast does so with the distance from
 * middle grey, and brightness adds up to half of the scale. Empty when there is nothing to do.
 */
cv::Mat toneTable(const Adjustments &adjustments);

} // namespace portable
