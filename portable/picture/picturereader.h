// SPDX-License-Identifier: MIT
/// \file Picture files decoded: the one place where the portable library does it.
#pragma once

#include "portable/picture/jpegfile.h"

#include <QByteArray>
#include <QString>
#include <opencv2/core.hpp>

#include <optional>

namespace portable {

/// What is decoded, and how large the picture may become.
struct PictureLimits
{
    /// Files of more pixels are refused: an A3 page of 600 dpi has 70 million.
    qint64 maxPixels = 128'000'000;
    int maxSide = 0; ///< Larger pictures are shrunk to it, in pixels; 0: none is.
};

/// For faces and fingers, which need no larger pictures.
constexpr PictureLimits biometricLimits{64'000'000, 2048};

// Errors are for the log and don't name the file.

/**
 * Decodes a picture file of any format that Qt or libtiff knows, of a TIFF the first picture.
 * \return 8-bit BGR, upright as its EXIF data say; empty, with a reason, when it can't be read
 */
cv::Mat readPicture(const QString &path, QString *error, const PictureLimits &limits = {});

/// The same of the bytes of a file.
cv::Mat decodePicture(const QByteArray &file, QString *error, const PictureLimits &limits = {});

/// The size of a picture file, upright, from its header alone; empty when it can't be read.
cv::Size pictureSize(const QString &path);

/// What is known of a JPEG that is whole.
struct CheckedJpeg
{
    JpegHead head;
    bool isUpright = true; ///< Whether its EXIF data ask for no rotation or mirroring.
};

/**
 * Decodes a JPEG from its start to its end, keeping no pixels.
 * \return nullopt, with a reason, when it is no JPEG, broken, cut short or has too many pixels
 */
std::optional<CheckedJpeg> checkJpeg(const QByteArray &file, QString *error,
                                     const PictureLimits &limits = {});

} // namespace portable
