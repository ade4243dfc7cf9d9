// SPDX-License-Identifier: MIT
#pragma once

#include <opencv2/core.hpp>

namespace pagecorpus {

/// Light that is darker by `fallOff` (0 to 1) at the place farthest from the lamp. CV_32F
cv::Mat lampLight(cv::RNG &random, const cv::Size &size, double fallOff);

/// The shadow of something large outside of the picture, which has clear edges. CV_32F factors
cv::Mat hardShadow(cv::RNG &random, const cv::Size &size);

/// Light that falls through a window with bars: brighter four-sided patches. CV_32F factors
cv::Mat windowLight(cv::RNG &random, const cv::Size &size);

/// The reflection of a lamp: a white spot that hides what is below. CV_32F, 0 to 1
cv::Mat reflection(cv::RNG &random, const cv::Size &size, const cv::Point2f &center);

/// What is worse than usual about a camera, or the light it has.
struct Camera
{
    double blur = 0; ///< the standard deviation, in pixels of 1920
    double exposure = 1;
    double noise = 0; ///< grey levels
    int quality = 100; ///< of its JPEG pictures, at most
};

/// What a camera does to a picture: blur, vignetting, a color cast, noise and JPEG compression.
cv::Mat photographed(cv::RNG &random, cv::Mat scene, const Camera &camera);

} // namespace pagecorpus
