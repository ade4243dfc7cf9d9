// SPDX-License-Identifier: MIT
#include "portable/picture/bilevel.h"
#include "portable/picture/pagefinder.h"
#include "portable/picture/pagesearch/perspective.h"
#include "portable/picture/parallel.h"
#include "portable/picture/perspectivewarp.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

namespace portable {

namespace {

// Minimum length in pixels of the longer side of pages searched for text skew.
constexpr int skewSide = 450;

/// Halved, which is the cheapest way, while a page of this size keeps skewSide pixels.
cv::Mat shrunken(const cv::Mat &picture, const cv::Size &page)
{
    cv::Mat result = picture;
    for (int side = std::max(page.width, page.height); side / 2 >= skewSide; side /= 2) {
        cv::Mat half;
        cv::resize(result, half, {std::max(1, result.cols / 2), std::max(1, result.rows / 2)}, 0, 0,
                   cv::INTER_AREA);
        result = half;
    }
    return result;
}

/// The part of a picture that a page covers, of a size that can be halved a few times.
cv::Rect areaOf(const PageCorners &corners, const cv::Size &picture)
{
    constexpr int unit = 16; // pixels
    const cv::Rect page =
        cv::boundingRect(std::vector<cv::Point2f>(corners.begin(), corners.end()));
    const cv::Point from(page.x / unit * unit, page.y / unit * unit);
    const cv::Point to((page.br().x / unit + 1) * unit, (page.br().y / unit + 1) * unit);
    const cv::Rect whole({}, picture);
    const cv::Rect area = cv::Rect(from, to) & whole;
    return area.empty() ? whole : area;
}

/// The corners in a copy of an area of the picture.
PageCorners cornersIn(const cv::Mat &copy, const PageCorners &corners, const cv::Rect &area)
{
    const cv::Point2f scale(float(copy.cols) / float(area.width),
                            float(copy.rows) / float(area.height));
    PageCorners result;
    std::transform(corners.begin(), corners.end(), result.begin(), [&](const cv::Point2f &corner) {
        return cv::Point2f((corner.x - float(area.x) + 0.5F) * scale.x - 0.5F,
                           (corner.y - float(area.y) + 0.5F) * scale.y - 0.5F);
    });
    return result;
}

/// Width to height of the rectangle that a camera sees with these corners.
double proportions(const PageCorners &corners, const cv::Size &picture)
{
    const pagesearch::SeenSides sides(corners, picture);
    const auto &[across, down] = sides;

    // The focal length follows from sides that converge in both directions; otherwise a usual one
    // is assumed.
    const double longer = std::max(picture.width, picture.height);
    double focalSquare = longer * longer;
    if (std::abs(across[2]) > 0.05 && std::abs(down[2]) > 0.05) {
        const double square = -(across[0] * down[0] + across[1] * down[1]) / (across[2] * down[2]);
        if (square > 0.4 * longer * longer && square < 9 * longer * longer) {
            focalSquare = square;
        }
    }
    return sides.proportions(focalSquare);
}

cv::Size straightSize(const PageCorners &corners, const cv::Size &picture)
{
    const double width =
        std::max(cv::norm(corners[1] - corners[0]), cv::norm(corners[2] - corners[3]));
    const double height =
        std::max(cv::norm(corners[3] - corners[0]), cv::norm(corners[2] - corners[1]));
    const double plain = width / std::max(height, 1.0);
    // With a wrong corner the estimate can be anything.
    const double ratio = std::clamp(proportions(corners, picture), plain / 2, plain * 2);
    const auto side = [](double length) { return std::max(1, cvRound(length)); };
    return plain < ratio ? cv::Size(side(height * ratio), side(height))
                         : cv::Size(side(width), side(width / ratio));
}

/// Maps the corners of a page to those of a picture of `size`.
cv::Mat transformation(const PageCorners &corners, const cv::Size &size)
{
    // Coordinates are those of pixel centers; the page extends to the outer edges of its pixels.
    const float right = float(size.width) - 0.5F;
    const float bottom = float(size.height) - 0.5F;
    const PageCorners target{cv::Point2f(-0.5F, -0.5F), cv::Point2f(right, -0.5F),
                             cv::Point2f(right, bottom), cv::Point2f(-0.5F, bottom)};
    return cv::getPerspectiveTransform(corners.data(), target.data());
}

/// A straightened page of this size, reduced to what its skew is measured on.
cv::Mat smallPage(const cv::Mat &picture, const PageCorners &corners, const cv::Size &size)
{
    const cv::Rect area = areaOf(corners, picture.size());
    const cv::Mat small = shrunken(picture(area), size);
    const double scale = std::min(1.0, double(skewSide) / std::max(size.width, size.height));
    const cv::Size smallSize(std::max(1, cvRound(size.width * scale)),
                             std::max(1, cvRound(size.height * scale)));
    return warpedPerspective(small, transformation(cornersIn(small, corners, area), smallSize),
                             smallSize);
}

/// Rotates a picture of `size` about its center so that lines of this slope become level.
cv::Mat levelling(const cv::Size &size, double slope)
{
    cv::Mat rotation = cv::Mat::eye(3, 3, CV_64F);
    const cv::Point2f middle(float(size.width) / 2, float(size.height) / 2);
    cv::getRotationMatrix2D(middle, slope, 1).copyTo(rotation.rowRange(0, 2));
    return rotation;
}

/// The places of what isn't 0, in a fraction of the time of cv::findNonZero().
std::vector<cv::Point> placesOf(const cv::Mat &ink)
{
    std::vector<cv::Point> places;
    std::vector<int> columns(size_t(ink.cols));
    for (int y = 0; y < ink.rows; ++y) {
        // Without a branch: where there is ink can't be foreseen.
        size_t count = 0;
        for (int x = 0; x < ink.cols; ++x) {
            columns[count] = x;
            count += ink.ptr(y)[x] != 0 ? 1 : 0;
        }
        for (size_t i = 0; i < count; ++i) {
            places.emplace_back(columns[i], y);
        }
    }
    return places;
}

/// How distinctly the ink forms rows of this slope: largest for the slope of the text.
double distinctness(const std::vector<cv::Point> &ink, const cv::Size &size, double slope)
{
    const double tangent = std::tan(slope * CV_PI / 180);
    std::vector<int> shifts(size_t(size.width)); // of the columns, so that such rows are level
    for (size_t x = 0; x < shifts.size(); ++x) {
        shifts[x] = cvRound(-tangent * double(x));
    }
    const auto [least, most] = std::minmax(shifts.front(), shifts.back());
    std::vector<int> rows(size_t(size.height + most - least));
    for (const cv::Point &point : ink) {
        ++rows[size_t(point.y + shifts[size_t(point.x)] - least)];
    }
    double sum = 0;
    for (size_t i = 1; i < rows.size(); ++i) {
        const double step = rows[i] - rows[i - 1];
        sum += step * step;
    }
    return sum;
}

} // namespace

cv::Mat straightened(const cv::Mat &picture, const PageCorners &corners)
{
    const cv::Size size = straightSize(corners, picture.size());
    cv::Mat transform = transformation(corners, size);
    // The skew is measured on a small page, so that the large one is interpolated only once.
    const double slope = skewAngle(smallPage(picture, corners, size));
    if (slope != 0) {
        transform = levelling(size, slope) * transform;
    }
    return warpedPerspective(picture, transform, size);
}

cv::Mat straightenedPage(const cv::Mat &picture)
{
    const auto corners = findPage(picture);
    return corners ? straightened(picture, *corners) : cv::Mat();
}

double skewAngle(const cv::Mat &page)
{
    const cv::Mat grey = greyOf(shrunken(page, page.size()));
    if (std::min(grey.cols, grey.rows) < 50) {
        return 0;
    }
    cv::Mat ink;
    cv::adaptiveThreshold(grey, ink, 255, cv::ADAPTIVE_THRESH_MEAN_C, cv::THRESH_BINARY_INV, 25,
                          15);
    // The outermost pixels may show the desk.
    const int margin = std::min(ink.cols, ink.rows) / 25;
    const cv::Mat inner =
        ink(cv::Rect(margin, margin, ink.cols - 2 * margin, ink.rows - 2 * margin));
    const std::vector<cv::Point> points = placesOf(inner);
    constexpr size_t enough = 200;
    if (points.size() < enough) {
        return 0;
    }

    const auto some = [&points](size_t count) {
        std::vector<cv::Point> result;
        for (size_t i = 0; i < points.size(); i += 1 + points.size() / count) {
            result.push_back(points[i]);
        }
        return result;
    };
    double best = 0;
    const auto tryAround = [&](const std::vector<cv::Point> &tried, double reach, double step) {
        const int steps = cvRound(reach / step);
        const double center = best;
        const auto slopeOf = [=](size_t i) { return center + (int(i) - steps) * step; };
        std::vector<double> values(size_t(2 * steps + 1));
        inParallel({0, int(values.size())}, [&](int i) {
            values[size_t(i)] = distinctness(tried, inner.size(), slopeOf(size_t(i)));
        });
        double bestValue = values[size_t(steps)];
        for (size_t i = 0; i < values.size(); ++i) {
            if (values[i] > bestValue) {
                bestValue = values[i];
                best = slopeOf(i);
            }
        }
        return bestValue;
    };
    constexpr double largestSlope = 5;
    tryAround(some(3000), largestSlope, 0.5);
    const std::vector<cv::Point> many = some(12000);
    const double bestValue = tryAround(many, 0.4, 0.1);
    const double level = distinctness(many, inner.size(), 0);
    // Text that is level within the error of measurement, or no text at all, is left as it is.
    const bool isPlain =
        bestValue > 1.2 * level && std::abs(best) > 0.2 && std::abs(best) < largestSlope;
    return isPlain ? best : 0;
}

} // namespace portable
