// SPDX-License-Identifier: MIT
#include "portable/picture/bookfold.h"

#include "portable/picture/bilevel.h"
#include "portable/picture/pagefinder.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <vector>

namespace portable {

namespace {

constexpr int searchWidth = 640; // pixels of the picture that is searched
constexpr double searchReach = 0.1; // of the page's width, to each side of its middle
constexpr double minDistinction = 8; // grey levels
constexpr double minPage = 0.25; // of the picture's area; anything smaller lies on the page

cv::Rect wholeOf(const cv::Mat &picture)
{
    return {0, 0, picture.cols, picture.rows};
}

/// The part of the picture that the book covers.
cv::Rect bookArea(const cv::Mat &picture)
{
    const auto corners = findPage(picture);
    if (!corners) {
        return wholeOf(picture);
    }
    const cv::Rect area =
        cv::boundingRect(std::vector<cv::Point2f>(corners->begin(), corners->end()))
        & wholeOf(picture);
    return area.area() >= minPage * double(picture.total()) ? area : wholeOf(picture);
}

} // namespace

int foldColumn(const cv::Mat &picture)
{
    const cv::Rect area = bookArea(picture);
    const int middle = area.x + area.width / 2;
    const int reach = cvRound(area.width * searchReach);
    const int margin = area.height / 8; // the ends of a fold are above the desk
    const cv::Rect band(middle - reach, area.y + margin, 2 * reach, area.height - 2 * margin);
    if (band.width < 16 || band.height < 16) {
        return middle;
    }
    cv::Mat grey = greyOf(picture(band));
    const double scale = std::min(1.0, double(searchWidth) / area.width);
    const cv::Size size(std::max(1, cvRound(grey.cols * scale)),
                        std::max(1, cvRound(grey.rows * scale)));
    cv::resize(grey, grey, size, 0, 0, cv::INTER_AREA);

    // Paper is bright and text is uneven; the columns of the fold are dark, or at least even.
    std::vector<double> costs;
    for (int x = 0; x < grey.cols; ++x) {
        cv::Scalar mean;
        cv::Scalar deviation;
        cv::meanStdDev(grey.col(x), mean, deviation);
        costs.push_back(mean[0] + deviation[0]);
    }
    const auto best = std::min_element(costs.begin(), costs.end());
    const auto column = int(best - costs.begin());
    const double bestCost = *best;
    std::nth_element(costs.begin(), costs.begin() + std::ptrdiff_t(costs.size() / 2), costs.end());
    return costs[costs.size() / 2] - bestCost >= minDistinction
        ? band.x + cvRound((column + 0.5) / scale)
        : middle;
}

} // namespace portable
