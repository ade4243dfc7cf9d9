// SPDX-License-Identifier: MIT
/// \file Grey and black-and-white pictures.
#pragma once

#include <opencv2/core.hpp>

namespace portable {

/// The grey of a BGR picture; a grey one is returned as it is, sharing its pixels.
cv::Mat greyOf(const cv::Mat &picture);

/**
 * Black and white by an adaptive threshold, which copes with shadows and uneven light.
 * \param picture  8-bit BGR or grey, not empty
 * \return one channel of 0 (ink) and 255 (paper)
 */
cv::Mat bilevel(const cv::Mat &picture);

} // namespace portable
