// SPDX-License-Identifier: MIT
#pragma once

#include <opencv2/core.hpp>

namespace portable {

/**
 * The column at which two pages of an open book, or of a folded sheet, meet: near the middle of the
 * page that is found, else of the picture, the upright line that is dark and plain. Where none
 * stands out it is that middle itself.
 * \param picture  8-bit BGR, the fold upright
 */
int foldColumn(const cv::Mat &picture);

} // namespace portable
