// SPDX-License-Identifier: MIT
#pragma once

#include <opencv2/core.hpp>

namespace pagecorpus {

enum class Desk {
    Plain, ///< with fine grain
    Wood,
    Planks,
    Checks,
    Stripes,
    Dots,
    Tiles,
    Fabric,
    Marble,
    TwoTone, ///< the edge of the desk, and the floor beyond it
};

/// A desk of two colors, BGR from 0 to 255, its pattern of random size and direction. CV_32FC3
cv::Mat paintDesk(cv::RNG &random, const cv::Size &size, Desk kind, const cv::Vec3f &color,
                  const cv::Vec3f &second);

} // namespace pagecorpus
