// SPDX-License-Identifier: MIT
#pragma once

#include <opencv2/core.hpp>

#include <array>

namespace portable::pagesearch {

/**
 * What the search looks for edges in, a plane for each, CV_32F, of a picture reduced. The light on
 * the desk adds to the logarithm of the lightness what changes slowly, and hardly changes the
 * colors relative to it. Nothing is rounded.
 */
struct Features
{
    explicit Features(const cv::Size &size)
        : rounding(size, CV_32F)
        , colors{cv::Mat(size, CV_32F), cv::Mat(size, CV_32F), cv::Mat(size, CV_32F)}
    {
    }

    cv::Mat rounding; ///< changes of the logarithm that may be due to rounded grey levels
    std::array<cv::Mat, 3> colors; ///< smoothed; as in Edges
};

/// By what factor a picture of this size is reduced before the search: 1 to 16.
int reductionOf(const cv::Size &size);

/**
 * The features of a picture.
 * \param picture    8-bit BGR
 * \param reduction  pixels of the picture to one of the result, both ways: see reductionOf()
 */
Features featuresOf(const cv::Mat &picture, int reduction);

} // namespace portable::pagesearch
