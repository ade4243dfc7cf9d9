// SPDX-License-Identifier: MIT
/// \file TIFF files, by libtiff. Free of OpenCV, whose headers don't go with libtiff's.
#pragma once

#include <QByteArray>
#include <QImage>
#include <QSize>

namespace portable {

/**
 * A TIFF of one strip, which is a whole JPEG file: nothing is encoded a second time.
 * \param jpeg   grey, or color as YCbCr 4:2:0
 * \param dpiX,dpiY  dots per inch
 */
QByteArray tiffOfJpeg(const QByteArray &jpeg, QSize size, bool isGrey, int dpiX, int dpiY);

/// Where the pixels of a bilevel picture lie: one byte each, 0 is ink.
struct InkView
{
    const uchar *pixels;
    qptrdiff step; ///< Bytes from row to row.
    QSize size;
};

/// A TIFF in CCITT group 4 of one strip, MSB first, bit 1 = ink.
QByteArray tiffOfInk(const InkView &ink, int dpiX, int dpiY);

/// The bytes of the first strip as they lie in the file.
QByteArray firstStrip(const QByteArray &tiff);

bool isTiff(const QByteArray &bytes);

/// The resolution of the first picture in dots per inch; invalid when the file doesn't tell.
QSize tiffDpi(const QByteArray &tiff);

/// The first picture of a TIFF file; null, with a reason, when it can't be read.
QImage readTiff(const QByteArray &tiff, qint64 maximumPixels, QString *error);

} // namespace portable
