// SPDX-License-Identifier: MIT
/// \file Picture files of OpenCV matrices. Any thread.
#pragma once

#include <string>
#include <vector>

namespace cv {
class Mat;
}

/**
 * Encodes a picture by OpenCV's imgcodecs, which is in a module beside the program and is loaded at
 * the first call: it brings a hundred libraries. Without the module, JPEG is encoded by
 * encodeJpeg(), and the log says so.
 * \param matrix     8-bit BGR or gray
 * \param extension  file type without the dot
 * \param quality    of a JPEG, 0 to 100
 * \return empty, with a line in the log, on failure
 */
std::vector<unsigned char> encodeImage(const cv::Mat &matrix, const std::string &extension,
                                       int quality);

/// The same bytes as cv::imencode() makes of a JPEG, by libjpeg.
std::vector<unsigned char> encodeJpeg(const cv::Mat &matrix, int quality);
