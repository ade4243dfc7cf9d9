// SPDX-License-Identifier: MIT
#include "portable/picture/pagesearch/perspective.h"

#include <cmath>

namespace portable::pagesearch {

namespace {

double product(const cv::Vec3d &a, const cv::Vec3d &b, double focalSquare)
{
    return (a[0] * b[0] + a[1] * b[1]) / focalSquare + a[2] * b[2];
}

} // namespace

SeenSides::SeenSides(const std::array<cv::Point2f, 4> &corners, const cv::Size &picture)
{
    const auto seen = [&](const cv::Point2f &corner) {
        return cv::Vec3d(double(corner.x) - picture.width / 2.0,
                         double(corner.y) - picture.height / 2.0, 1);
    };
    const cv::Vec3d topLeft = seen(corners[0]);
    const cv::Vec3d topRight = seen(corners[1]);
    const cv::Vec3d bottomRight = seen(corners[2]);
    const cv::Vec3d bottomLeft = seen(corners[3]);
    const cv::Vec3d diagonal = topLeft.cross(bottomRight);
    const double right = diagonal.dot(bottomLeft) / topRight.cross(bottomRight).dot(bottomLeft);
    const double bottom = diagonal.dot(topRight) / bottomLeft.cross(bottomRight).dot(topRight);
    across = right * topRight - topLeft;
    down = bottom * bottomLeft - topLeft;
}

double SeenSides::proportions(double focalSquare) const
{
    return std::sqrt(product(across, across, focalSquare) / product(down, down, focalSquare));
}

double SeenSides::cosine(double focalSquare) const
{
    return product(across, down, focalSquare)
        / std::sqrt(product(across, across, focalSquare) * product(down, down, focalSquare));
}

} // namespace portable::pagesearch
