// SPDX-License-Identifier: MIT
#pragma once

#include "portable/picture/pagesearch/quads.h"

#include <opencv2/core.hpp>

namespace portable::pagesearch {

/**
 * Moves each side to where the picture changes most at it, to a fraction of a pixel.
 * \param picture  8-bit BGR
 * \param corners  clockwise, in the picture's pixels
 * \param reach  pixels, how far off they may be
 */
Corners refined(const cv::Mat &picture, const Corners &corners, int reach);

} // namespace portable::pagesearch
