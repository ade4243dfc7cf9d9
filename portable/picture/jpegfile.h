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
 * Whether a JPEG has few enough scans to be decoded: a progressive one of a few kilobytes may have
 * thousands, each of which goes through all pixels. Anything else that is wrong with it is left to
 * the decoder.
 * \return false with a reason
 */
bool checkScans(const QByteArray &bytes, QString *error);

/**
 * Decodes a JPEG from its start to its end, keeping nothing.
 * \return nullopt, with a reason, when it is no JPEG, broken, cut short, has too many pixels or
 *         scans, or takes too long (inputlimits.h)
 */
std::optional<JpegHead> validateJpeg(const QByteArray &bytes, QString *error);

/// Row `y` of a picture, valid until the next call; null, with a reason, when it can't be read.
using RowSource = std::function<const uchar *(int y, QString *error)>;

/**
 * A JPEG file, 4:2:0, of a picture whose rows are asked for one by one, from the top.
 * \return empty, with a reason, when it can't be encoded, or a side is longer than largestJpegSide
 */
QByteArray jpegOfRows(const cv::Size &size, Pixels pixels, int quality, Dpi dpi,
                      const RowSource &rows, QString *error);

} // namespace portable
