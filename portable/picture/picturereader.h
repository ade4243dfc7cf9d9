// SPDX-License-Identifier: MIT
/// \file Picture files decoded: the one place where the portable library does it.
#pragma once

#include "portable/base/inputlimits.h"
#include "portable/picture/jpegfile.h"

#include <QByteArray>
#include <QString>
#include <opencv2/core.hpp>

#include <chrono>
#include <optional>

namespace portable {

/// What is decoded, and how large the picture may become.
struct PictureLimits
{
    qint64 maxPixels = limits::pixels; ///< Pictures of more are refused.
    int maxSide = 0; ///< Larger pictures are shrunk to it, in pixels; 0: none is.
    std::chrono::seconds decoding = limits::decoding; ///< What takes longer is refused.
};

/// For faces and fingers, which need no larger pictures.
constexpr PictureLimits biometricLimits{64'000'000, 2048};

// Errors are for the log and don't name the file.

/**
 * Decodes a picture file: JPEG, PNG, BMP, TIFF (the first picture), GIF, PBM, PGM, PPM, and WebP
 * where Qt's plug-in is installed. The limits hold for what the decoder finds, not for what a
 * header says. \return 8-bit BGR, upright as its EXIF data say; empty, with a reason, when it can't
 * be read
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

/// validateJpeg(), and whether it is upright.
std::optional<CheckedJpeg> checkJpeg(const QByteArray &file, QString *error);

} // namespace portable
