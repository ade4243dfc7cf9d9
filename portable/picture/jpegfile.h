// SPDX-License-Identifier: MIT
/// \file JPEG files by libjpeg, row by row: their pixels are never in memory all at once.
#pragma once

#include "portable/picture/resolution.h"

#include <QByteArray>
#include <QString>
#include <opencv2/core.hpp>

#include <functional>
#include <optional>

namespace portable {

constexpr int largestJpegSide = 65500; ///< In pixels: JPEG_MAX_DIMENSION of libjpeg.

/// The layout in memory of the pixels to be encoded.
enum class Pixels { Grey = 1, Bgr = 3 }; ///< The value is the bytes of a pixel.

/// What the header of a JPEG says.
struct JpegHead
{
    cv::Size size;
    int components = 0; ///< 1 grey, 3 color, 4 for printers
    bool isWidelySupported =
        false; ///< Huffman-coded, 8 bits, grey or YCbCr: every viewer shows it.
    std::optional<Dpi> dpi; ///< nullopt when the file has none.
};

/**
 * Decodes a JPEG from its start to its end, keeping nothing.
 * \return nullopt, with a reason, when it is no JPEG, broken, cut short, or larger than `maxPixels`
 */
std::optional<JpegHead> validateJpeg(const QByteArray &bytes, qint64 maxPixels, QString *error);

/// Row `y` of a picture, valid until the next call; null, with a reason, when it can't be read.
using RowSource = std::function<const uchar *(int y, QString *error)>;

/**
 * A JPEG file, 4:2:0, of a picture whose rows are asked for one by one, from the top.
 * \return empty, with a reason, when it can't be encoded, or a side is longer than largestJpegSide
 */
QByteArray jpegOfRows(const cv::Size &size, Pixels pixels, int quality, Dpi dpi,
                      const RowSource &rows, QString *error);

} // namespace portable
