// SPDX-License-Identifier: MIT
#pragma once

#include <opencv2/core.hpp>

#include <array>

namespace pagecorpus {

using Corners = std::array<cv::Point2f, 4>; ///< clockwise from the top left

enum class Content { Text, Letter, Form, Framed, Photo, Receipt, Card, Blank, Book };

struct Sheet
{
    Content content = Content::Text;
    cv::Vec3f paper{240, 243, 245}; ///< BGR
    double ratio = 210.0 / 297; ///< width to height
    double least = 0.35; ///< the longer side's share of the picture's shorter side
    double most = 0.9;
    double turn = 15; ///< at most, in degrees
    double tilt = 8; ///< of the camera, at most, in degrees
    double shadow = 0.25; ///< how dark its own shadow is, at most
    double rounding = 0; ///< of its corners, a share of its width
    double curl = 0; ///< how far its sides are bent, in pixels
    double creases = 0; ///< how much they change its brightness
    double outside = 0; ///< the share of its size by which it reaches out of the picture
};

/// Where the camera sees the sheet: entirely within the picture unless Sheet::outside is set.
Corners place(cv::RNG &random, const cv::Size &picture, const Sheet &sheet);

/// The share of each pixel that the sheet covers. CV_32F
cv::Mat coverage(const cv::Size &picture, const Sheet &sheet, const Corners &corners);

/// The sheet as printed, as the camera sees it; without light and shadow. CV_32FC3
cv::Mat printed(cv::RNG &random, const cv::Size &picture, const Sheet &sheet,
                const Corners &corners);

} // namespace pagecorpus
