// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <opencv2/core.hpp>

namespace portable {

/// Dots per inch, both at least 1.
struct Dpi
{
    int x = 300;
    int y = 300;
};

/// Larger ones are not read: an A3 page of 600 dpi has 70 million pixels.
constexpr qint64 maxPixelsRead = 128'000'000;

// Pictures as the bytes of a file. All take 8-bit BGR or 8-bit grey, and write the resolution into
// the file. Empty when the picture can't be encoded.

/// JPEG, 4:2:0; a grey picture gives a JPEG of one component. \param quality  1 to 100
QByteArray jpegFile(const cv::Mat &picture, int quality, Dpi dpi);
QByteArray pngFile(const cv::Mat &picture, Dpi dpi);
QByteArray bmpFile(const cv::Mat &picture, Dpi dpi);
/// TIFF that holds a JPEG.
QByteArray jpegTiffFile(const cv::Mat &picture, int quality, Dpi dpi);
/// Bilevel TIFF, CCITT group 4. \param ink  as bilevel() makes it
QByteArray bilevelTiffFile(const cv::Mat &ink, Dpi dpi);

/// Grey of a BGR or grey picture.
cv::Mat greyOf(const cv::Mat &picture);
/// Black on white by an adaptive threshold: one channel of 0 (ink) and 255 (paper).
cv::Mat bilevel(const cv::Mat &picture);
/// The bare CCITT group 4 data of bilevel(), one strip, MSB first, bit 1 = ink: what PDF embeds.
QByteArray group4Data(const cv::Mat &ink);

/// Reads a picture file of any kind Qt or libtiff knows; BGR. Empty with a reason otherwise.
cv::Mat readPicture(const QString &path, QString *error);
/// The same from the bytes of a file.
cv::Mat readPictureBytes(const QByteArray &bytes, QString *error);

} // namespace portable
