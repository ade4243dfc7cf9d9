// SPDX-License-Identifier: MIT
/// \file JPEG files whose pixels never lie in memory all at once.
#pragma once

#include "portable/picture/picturefile.h"

#include <QByteArray>
#include <QString>

#include <functional>
#include <optional>

namespace portable {

constexpr int largestJpegSide = 65500; ///< In pixels: JPEG_MAX_DIMENSION of libjpeg.

/// How a JPEG's pixels lie in memory before it is one.
enum class Pixels { Grey = 1, Bgr = 3 }; ///< The value: bytes of a pixel.

/// What stands in the head of a JPEG.
struct JpegHead
{
    cv::Size size;
    int components = 0; ///< 1 grey, 3 color, 4 for printers
    bool isWidelySupported = false; ///< Huffman-coded, 8 bits: what viewers can be trusted to show.
    std::optional<Dpi> dpi; ///< None when the file doesn't tell.
};

/**
 * Decodes a JPEG from its start to its end, keeping nothing.
 * \return none, with a reason, when it is no JPEG, broken, cut short, or larger than `maxPixels`
 */
std::optional<JpegHead> validateJpeg(const QByteArray &bytes, qint64 maxPixels, QString *error);

/// Row `y` of a picture, valid until the next call; null, with a reason, when it can't be had.
using RowSource = std::function<const uchar *(int y, QString *error)>;

/**
 * A JPEG file, 4:2:0, of a picture whose rows come one by one, from the top.
 * \return empty, with a reason, when it can't be made, as with a side above largestJpegSide
 */
QByteArray jpegOfRows(const cv::Size &size, Pixels pixels, int quality, Dpi dpi,
                      const RowSource &rows, QString *error);

} // namespace portable
