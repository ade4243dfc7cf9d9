// SPDX-License-Identifier: MIT
#pragma once

#include "portable/picture/pagesearch/quads.h"

#include <opencv2/core.hpp>

namespace portable::pagesearch {

/// The sides of a page in the picture itself.
struct Outline
{
    Corners corners;
    float sharpness = 0; ///< 1 when the sides are as sharp as paper's, near 0 for those of light
};

/**
 * Moves each side to where the picture changes most at it, to a fraction of a pixel.
 * \param picture  8-bit BGR
 * \param corners  clockwise, in the picture's pixels
 * \param reduction  pixels, how far off they may be
 */
Outline refined(const cv::Mat &picture, const Corners &corners, int reduction);

} // namespace portable::pagesearch
