// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace cv {
class Mat;
}

/**
 * The pixels that cv::resize() picks with INTER_NEAREST. Its library would take 2 ms of the
 * server's start.
 */
cv::Mat nearestScaled(const cv::Mat &matrix, int width, int height);

/**
 * Encodes a picture as an image file and returns its base64 text: standard alphabet, no line
 * breaks.
 *
 * \param matrix     8-bit BGR or gray
 * \param extension  file type without the dot, "JPG" in every caller; JPEG quality is 70
 * \return empty for an empty matrix, and (with a log line) when encoding fails
 */
std::string Mat2Base64(const cv::Mat &matrix, const std::string &extension);
