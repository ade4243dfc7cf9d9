// SPDX-License-Identifier: MIT
#pragma once

#include "portable/picture/framepool.h"

namespace portable {

/// How a frame is turned for display: rotated first, then flipped.
struct Orientation
{
    int rotation = 0; ///< Degrees clockwise: 0, 90, 180 or 270.
    int flip = 0; ///< 0 none, 1 left-right, 2 upside-down, 3 both.
};

bool isRotation(int degrees); ///< Whether it is valid for an Orientation.
bool isFlip(int mode); ///< Whether it is valid for an Orientation.

/// `frame` turned, in a matrix of `pool`; `frame` itself when there is nothing to turn.
cv::Mat turned(const cv::Mat &frame, const Orientation &orientation, FramePool &pool);

} // namespace portable
