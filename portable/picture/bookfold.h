// SPDX-License-Identifier: MIT
#pragma once

#include <opencv2/core.hpp>

namespace portable {

/**
 * The column at which the two pages of an open book, or of a folded sheet, meet: the dark, even
 * vertical line near the middle of the page, or of the picture when no page is found. The middle
 * itself when no line is distinct enough.
 * \param picture  8-bit BGR, the fold vertical
 */
int foldColumn(const cv::Mat &picture);

} // namespace portable
