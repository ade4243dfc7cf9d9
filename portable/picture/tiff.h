// SPDX-License-Identifier: MIT
/// \file TIFF files, by libtiff. Free of OpenCV, whose headers clash with libtiff's.
#pragma once

#include <QByteArray>
#include <QImage>
#include <QSize>

#include <chrono>

namespace portable {

/**
 * A TIFF of one strip, which is a whole JPEG file: nothing is encoded again.
 * \param jpeg   grey, or color as YCbCr 4:2:0
 * \param dpiX,dpiY  dots per inch
 */
QByteArray tiffOfJpeg(const QByteArray &jpeg, QSize size, bool isGrey, int dpiX, int dpiY);

/// The pixels of a bilevel picture, one byte each, 0 is ink; not owned.
struct InkView
{
    const uchar *pixels;
    qptrdiff step; ///< Bytes from one row to the next.
    QSize size;
};

/// A TIFF in CCITT group 4 of one strip, MSB first, bit 1 = ink.
QByteArray tiffOfInk(const InkView &ink, int dpiX, int dpiY);

/// The bytes of the first strip as stored in the file; empty when there is none.
QByteArray firstStrip(const QByteArray &tiff);

bool isTiff(const QByteArray &bytes);

/// Resolution of the first picture in dots per inch; invalid when the file has none.
QSize tiffDpi(const QByteArray &tiff);

/// The size of the first picture, as it is stored; empty when there is none.
QSize tiffSize(const QByteArray &tiff);

/**
 * The first picture of a TIFF, upright. Nothing is allocated for one of more than `maxPixels`, nor
 * for tiles or strips larger than such a picture.
 * \param limit  what takes longer to decode is given up
 * \return null, with a reason, when it can't be read
 */
QImage readTiff(const QByteArray &tiff, qint64 maxPixels, std::chrono::seconds limit,
                QString *error);

} // namespace portable
