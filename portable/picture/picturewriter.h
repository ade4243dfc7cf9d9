// SPDX-License-Identifier: MIT
/// \file Pictures encoded as the bytes of a file: the one place where they are.
#pragma once

#include "portable/picture/resolution.h"

#include <QByteArray>
#include <opencv2/core.hpp>

namespace portable {

// All write the resolution into the file, and return an empty one for a picture that can't be
// encoded: empty, too large for the format, or not of the type given.

// Of 8-bit BGR or 8-bit grey.

/// JPEG, 4:2:0; a grey picture gives a JPEG of one component. \param quality  1 to 100
QByteArray jpegFile(const cv::Mat &picture, int quality, Dpi dpi);
QByteArray pngFile(const cv::Mat &picture, Dpi dpi);
QByteArray bmpFile(const cv::Mat &picture, Dpi dpi);
/// TIFF that holds a JPEG. \param quality  1 to 100
QByteArray jpegTiffFile(const cv::Mat &picture, int quality, Dpi dpi);

// Of black and white, as bilevel() returns it.

/// TIFF in CCITT group 4.
QByteArray bilevelTiffFile(const cv::Mat &ink, Dpi dpi);
/// PNG of one bit a pixel.
QByteArray bilevelPngFile(const cv::Mat &ink, Dpi dpi);
/// The bare CCITT group 4 data, one strip, MSB first, bit 1 = ink: what PDF embeds.
QByteArray group4Data(const cv::Mat &ink);

} // namespace portable
