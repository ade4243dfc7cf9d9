// SPDX-License-Identifier: MIT
#include "portable/picture/adjustments.h"

#include <cmath>

namespace portable {

cv::Mat toneTable(const Adjustments &adjustments)
{
    if (adjustments.isNeutral()) {
        return {};
    }
    constexpr double middle = 127.5;
    const double light = std::pow(2, adjustments.exposure / 50.0);
    const double steepness = std::pow(2, adjustments.contrast / 50.0);
    const double lift = adjustments.brightness / 100.0 * middle;
    cv::Mat table(1, 256, CV_8U);
    for (int value = 0; value < table.cols; ++value) {
        const double exposed = std::min(255.0, value * light);
        table.at<uchar>(value) =
            cv::saturate_cast<uchar>((exposed - middle) * steepness + middle + lift);
    }
    return table;
}

} // namespace portable
