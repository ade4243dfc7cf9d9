// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <opencv2/core.hpp>

namespace portable {

/**
 * Reads an image file, upright as its EXIF data say, and shrunk where it is far larger than faces
 * and fingers need.
 * \param picture  8-bit BGR
 * \return false, with a reason for the log, for what is no image file or too large to be decoded
 */
bool readImageFile(const QString &path, cv::Mat *picture, QString *error);

} // namespace portable
