// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace cv {
class Mat;
}

/**
 * Encodes a picture as an image file and returns its base64 text: standard alphabet, no line
 * breaks. \param matrix     8-bit BGR or gray \param extension  file type without the dot, "JPG" in
 * every caller; JPEG quality is 70 \return empty for an empty matrix, and (with a log line) when
 * encoding fails
 */
std::string Mat2Base64(const cv::Mat &matrix, const std::string &extension);
