// SPDX-License-Identifier: MIT
#pragma once

#include "portable/picture/framepool.h"

namespace portable {

/// How the picture is turned; first the rotation, then the flip, as the viewer sees it.
struct Orientation
{
    int rotation = 0; ///< Degrees clockwise: 0, 90, 180 or 270.
    int flip = 0; ///< 0 none, 1 left-right, 2 upside-down, 3 both.
};

bool isRotation(int degrees); ///< Whether an Orientation may have it.
bool isFlip(int mode); ///< Whether an Orientation may have it.

/// `frame` turned, in a matrix of `pool`; `frame` itself where there is nothing to turn.
cv::Mat turned(const cv::Mat &frame, const Orientation &orientation, FramePool &pool);

} // namespace portable
