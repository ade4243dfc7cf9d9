// SPDX-License-Identifier: MIT
#pragma once

#include <opencv2/core.hpp>

namespace pagecorpus {

/// Uniform in [least, most).
inline float between(cv::RNG &random, double least, double most)
{
    return float(random.uniform(least, most));
}

/// True in `share` of the cases.
inline bool happens(cv::RNG &random, double share)
{
    return random.uniform(0.0, 1.0) < share;
}

/// Smooth noise of about -1 to 1 whose blotches are `cell` pixels large. CV_32F
cv::Mat noiseField(cv::RNG &random, const cv::Size &size, const cv::Size2f &cell);

/// A mask blurred by any radius in about constant time. CV_32F, 0 to 1
cv::Mat softened(const cv::Mat &mask, double sigma);

/// picture * (1 - mask) + color * mask. CV_32FC3 and CV_32F
void paint(cv::Mat &picture, const cv::Mat &mask, const cv::Vec3f &color);

/// picture * (1 - mask) + layer * mask. CV_32FC3 both, the mask CV_32F
void blend(cv::Mat &picture, const cv::Mat &mask, const cv::Mat &layer);

/// Multiplies all channels by a CV_32F field.
void shade(cv::Mat &picture, const cv::Mat &field);

} // namespace pagecorpus
