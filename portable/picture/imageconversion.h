// SPDX-License-Identifier: MIT
#pragma once

#include <QImage>
#include <opencv2/core.hpp>

namespace portable {

/**
 * An 8-bit BGR matrix as an image. From Qt 5.14 on the image shares the matrix's pixels, read-only,
 * and keeps them alive; older versions have no such format, and the pixels are copied.
 */
QImage toImage(const cv::Mat &bgr);

/**
 * A copy of any image as an 8-bit BGR matrix, with white behind transparent parts. Empty for a null
 * image, or without the memory for it.
 */
cv::Mat toMat(const QImage &image);

} // namespace portable
