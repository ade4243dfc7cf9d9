// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace cv {
class Mat;
}

/**
 * A picture as base64 text of an encoded file, standard alphabet, no line breaks.
 * \param matrix     8-bit BGR or grey
 * \param extension  the file type without its dot, "JPG" in every caller; JPEG quality is 70
 * \return empty for an empty matrix, and (with a log line) when the picture can't be encoded
 */
std::string Mat2Base64(const cv::Mat &matrix, const std::string &extension);
