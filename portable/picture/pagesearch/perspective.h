// SPDX-License-Identifier: MIT
#pragma once

#include <opencv2/core.hpp>

#include <array>

namespace portable::pagesearch {

/**
 * The sides of the parallelogram in space that a camera sees with four corners, the principal point
 * being the center of the picture (Zhang and He, "Whiteboard scanning and image enhancement",
 * section 4). The first two components are in pixels of the picture, to be divided by the focal
 * length; the third is without unit.
 */
struct SeenSides
{
    cv::Vec3d across; ///< from the first corner to the second
    cv::Vec3d down; ///< from the first corner to the fourth

    /**
     * \param corners  clockwise
     * \param picture  its size
     */
    SeenSides(const std::array<cv::Point2f, 4> &corners, const cv::Size &picture);

    /// The ratio of the lengths of `across` and `down` for the square of a focal length in pixels.
    double proportions(double focalSquare) const;

    /// The cosine between them.
    double cosine(double focalSquare) const;
};

} // namespace portable::pagesearch
