// SPDX-License-Identifier: MIT
#include "portable/camera/framesource.h"

#include <algorithm>
#include <cmath>

namespace portable {

namespace {

double area(const cv::Size &size)
{
    return double(size.width) * size.height;
}

} // namespace

cv::Size FrameSource::sizeFor(const cv::Size &wanted) const
{
    return chooseSize(sizes(), wanted);
}

void sortSizes(std::vector<cv::Size> &sizes)
{
    std::sort(sizes.begin(), sizes.end(), [](const cv::Size &a, const cv::Size &b) {
        return area(a) != area(b) ? area(a) > area(b) : a.width > b.width;
    });
    sizes.erase(std::unique(sizes.begin(), sizes.end()), sizes.end());
}

cv::Size chooseSize(const std::vector<cv::Size> &sizes, const cv::Size &wanted)
{
    if (sizes.empty()) {
        return {};
    }
    if (wanted.empty()) {
        const auto found = std::find_if(sizes.begin(), sizes.end(), [](const cv::Size &size) {
            return area(size) <= 1920 * 1080;
        });
        return found != sizes.end() ? *found : sizes.back();
    }
    const auto distance = [&wanted](const cv::Size &size) {
        return std::abs(double(size.width) - wanted.width)
            + std::abs(double(size.height) - wanted.height);
    };
    return *std::min_element(
        sizes.begin(), sizes.end(),
        [&distance](const cv::Size &a, const cv::Size &b) { return distance(a) < distance(b); });
}

QString sizeText(const cv::Size &size)
{
    return QStringLiteral("%1 x %2").arg(size.width).arg(size.height);
}

} // namespace portable
