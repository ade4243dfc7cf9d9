// SPDX-License-Identifier: MIT
#include "portable/picture/pagefinder.h"

#include "portable/picture/bilevel.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

namespace portable {

namespace {

using Contour = std::vector<cv::Point>;

// Minimum length in pixels of the longer side of pictures searched for a page and for text skew.
constexpr int finderSide = 480;
constexpr int skewSide = 450;
constexpr int ringWidth = 6; // pixels along the edges of the searched picture, taken for the desk
constexpr double minPage = 0.01; // of the picture's area
constexpr double minBreadth = 0.1; // of its length; anything narrower is a pen or a ruler
constexpr double minSquareness = 0.7; // area of a page to that of its bounding rectangle

/// A line through `point`; `direction` is of length 1.
struct Line
{
    cv::Point2f point;
    cv::Point2f direction;
};

/// Halved, which is the cheapest way, while the longer side keeps at least this many pixels.
cv::Mat shrunken(const cv::Mat &picture, int leastSide)
{
    cv::Mat result = picture;
    while (std::max(result.cols, result.rows) / 2 >= leastSide) {
        cv::Mat half;
        cv::resize(result, half, {std::max(1, result.cols / 2), std::max(1, result.rows / 2)}, 0, 0,
                   cv::INTER_AREA);
        result = half;
    }
    return result;
}

/// The quantile of `values`: a `share` of them is not above it.
template <class Value> Value quantile(std::vector<Value> &values, double share)
{
    const auto place = values.begin() + std::ptrdiff_t(double(values.size() - 1) * share);
    std::nth_element(values.begin(), place, values.end());
    return *place;
}

/// Calls `visit` with each pixel along the edges.
template <class Pixel, class Visit> void visitRing(const cv::Mat &picture, Visit visit)
{
    const int innerRows = picture.rows - 2 * ringWidth;
    const cv::Rect strips[] = {{0, 0, picture.cols, ringWidth},
                               {0, picture.rows - ringWidth, picture.cols, ringWidth},
                               {0, ringWidth, ringWidth, innerRows},
                               {picture.cols - ringWidth, ringWidth, ringWidth, innerRows}};
    for (const cv::Rect &strip : strips) {
        const cv::Mat part = picture(strip);
        std::for_each(part.begin<Pixel>(), part.end<Pixel>(), visit);
    }
}

/// The color of the desk: of each channel the median along the edges.
cv::Vec3b ringColor(const cv::Mat &ycc)
{
    std::array<std::vector<uchar>, 3> values;
    visitRing<cv::Vec3b>(ycc, [&](const cv::Vec3b &pixel) {
        for (int channel = 0; channel < 3; ++channel) {
            values[size_t(channel)].push_back(pixel[channel]);
        }
    });
    return {quantile(values[0], 0.5), quantile(values[1], 0.5), quantile(values[2], 0.5)};
}

/// The distance of each pixel from the desk's color, in lightness or in hue, whichever is larger.
cv::Mat differenceFrom(const cv::Vec3b &desk, const cv::Mat &ycc)
{
    cv::Mat difference(ycc.size(), CV_8U);
    for (int y = 0; y < ycc.rows; ++y) {
        const auto *line = ycc.ptr<cv::Vec3b>(y);
        uchar *row = difference.ptr(y);
        for (int x = 0; x < ycc.cols; ++x) {
            const cv::Vec3b &pixel = line[x];
            const int lightness = std::abs(pixel[0] - desk[0]);
            const int hue = std::abs(pixel[1] - desk[1]) + std::abs(pixel[2] - desk[2]);
            row[x] = uchar(std::min(255, std::max(lightness, hue)));
        }
    }
    return difference;
}

/// White where something lies on the desk; the grain of the desk itself is tolerated.
cv::Mat objectsIn(const cv::Mat &small)
{
    cv::Mat ycc;
    cv::GaussianBlur(small, ycc, {5, 5}, 0);
    cv::cvtColor(ycc, ycc, cv::COLOR_BGR2YCrCb);
    const cv::Mat difference = differenceFrom(ringColor(ycc), ycc);
    std::vector<uchar> ring;
    visitRing<uchar>(difference, [&](uchar value) { ring.push_back(value); });
    const double threshold = std::clamp(2.2 * quantile(ring, 0.8) + 4, 9.0, 45.0);
    cv::Mat objects;
    cv::threshold(difference, objects, threshold, 255, cv::THRESH_BINARY);
    cv::morphologyEx(objects, objects, cv::MORPH_OPEN,
                     cv::getStructuringElement(cv::MORPH_RECT, {7, 7}));
    return objects;
}

/// The contour most similar to a large rectangle; empty when none is.
Contour pageContour(const cv::Mat &objects)
{
    std::vector<Contour> contours;
    cv::findContours(objects, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
    Contour best;
    double bestScore = 0;
    for (Contour &contour : contours) {
        const double area = cv::contourArea(contour);
        if (area < minPage * double(objects.total())) {
            continue;
        }
        const cv::Size2f around = cv::minAreaRect(contour).size;
        const double breadth =
            double(std::min(around.width, around.height)) / std::max(around.width, around.height);
        const double squareness = area / around.area();
        const double score = area * squareness * squareness;
        if (breadth >= minBreadth && squareness >= minSquareness && score > bestScore) {
            bestScore = score;
            best.swap(contour);
        }
    }
    return best;
}

/// The corners clockwise, beginning with the one nearest to the top left of the picture.
PageCorners ordered(PageCorners corners)
{
    cv::Point2f centre;
    for (const cv::Point2f &corner : corners) {
        centre += corner * 0.25F;
    }
    std::sort(corners.begin(), corners.end(), [&](const cv::Point2f &a, const cv::Point2f &b) {
        return std::atan2(a.y - centre.y, a.x - centre.x)
            < std::atan2(b.y - centre.y, b.x - centre.x); // clockwise, as y points down
    });
    const auto first = std::min_element(
        corners.begin(), corners.end(),
        [](const cv::Point2f &a, const cv::Point2f &b) { return a.x + a.y < b.x + b.y; });
    std::rotate(corners.begin(), first, corners.end());
    return corners;
}

/// Four corners of the contour, roughly.
PageCorners roughCorners(const Contour &contour)
{
    Contour hull;
    cv::convexHull(contour, hull);
    const double length = cv::arcLength(hull, true);
    PageCorners corners;
    for (double tolerance = 0.01; tolerance < 0.1; tolerance += 0.005) {
        Contour polygon;
        cv::approxPolyDP(hull, polygon, tolerance * length, true);
        if (polygon.size() == corners.size()) {
            std::copy(polygon.begin(), polygon.end(), corners.begin());
            return ordered(corners);
        }
    }
    cv::minAreaRect(contour).points(corners.data());
    return ordered(corners);
}

double cross(const cv::Point2f &a, const cv::Point2f &b)
{
    return double(a.x) * b.y - double(a.y) * b.x;
}

/// The line through the points of the contour near this side, its ends left out.
Line fittedSide(const Contour &contour, const cv::Point2f &from, const cv::Point2f &to)
{
    const cv::Point2f side = to - from;
    const auto length = float(cv::norm(side));
    const cv::Point2f direction = side / std::max(length, 1e-3F);
    Contour near;
    for (const cv::Point &point : contour) {
        const cv::Point2f offset = cv::Point2f(point) - from;
        const float along = offset.dot(direction) / length;
        // Corners may be dog-eared, and the search rounds them.
        if (along > 0.08F && along < 0.92F
            && std::abs(cross(direction, offset)) < 0.03 * double(length) + 2) {
            near.push_back(point);
        }
    }
    constexpr size_t enough = 10;
    if (near.size() < enough) {
        return {from, direction};
    }
    cv::Vec4f line;
    cv::fitLine(near, line, cv::DIST_HUBER, 0, 0.01, 0.01);
    return {{line[2], line[3]}, {line[0], line[1]}};
}

/// Where two lines intersect; `otherwise` when that is far away from it, or they don't.
cv::Point2f intersection(const Line &a, const Line &b, const cv::Point2f &otherwise, double far)
{
    const double sine = cross(a.direction, b.direction);
    if (std::abs(sine) < 0.1) {
        return otherwise;
    }
    const double along = cross(b.point - a.point, b.direction) / sine;
    const cv::Point2f point = a.point + a.direction * float(along);
    return cv::norm(point - otherwise) < far ? point : otherwise;
}

/// The corners where adjacent sides intersect; side i goes from corner i to the next.
PageCorners meetings(const std::array<Line, 4> &sides, const PageCorners &rough)
{
    const std::vector<cv::Point2f> outline(rough.begin(), rough.end());
    const double far = 0.05 * cv::arcLength(outline, true);
    PageCorners corners;
    for (size_t i = 0; i < 4; ++i) {
        corners[i] = intersection(sides[(i + 3) % 4], sides[i], rough[i], far);
    }
    return corners;
}

PageCorners refitted(const Contour &contour, const PageCorners &rough)
{
    std::array<Line, 4> sides;
    for (size_t i = 0; i < 4; ++i) {
        sides[i] = fittedSide(contour, rough[i], rough[(i + 1) % 4]);
    }
    return meetings(sides, rough);
}

int brightness(const cv::Mat &picture, const cv::Point2f &point)
{
    const int x = std::clamp(cvRound(point.x), 0, picture.cols - 1);
    const int y = std::clamp(cvRound(point.y), 0, picture.rows - 1);
    const auto &pixel = picture.at<cv::Vec3b>(y, x);
    return pixel[0] + pixel[1] + pixel[2];
}

/// The line of the strongest change within `reach` pixels of a side.
Line sharpenedSide(const cv::Mat &picture, const cv::Point2f &from, const cv::Point2f &to,
                   int reach)
{
    const cv::Point2f side = to - from;
    const auto length = std::max(float(cv::norm(side)), 1e-3F);
    const cv::Point2f inwards(-side.y / length, side.x / length);
    constexpr int samples = 48;
    std::vector<cv::Point2f> edge;
    for (int i = 0; i < samples; ++i) {
        const float along = 0.05F + 0.9F * (float(i) + 0.5F) / samples; // corners are often bent
        const cv::Point2f middle = from + side * along;
        int best = 0;
        cv::Point2f place = middle;
        for (int offset = -reach; offset <= reach; ++offset) {
            const cv::Point2f point = middle + inwards * float(offset);
            const int change = std::abs(brightness(picture, point + inwards)
                                        - brightness(picture, point - inwards));
            if (change > best) {
                best = change;
                place = point;
            }
        }
        edge.push_back(place);
    }
    cv::Vec4f line;
    cv::fitLine(edge, line, cv::DIST_HUBER, 0, 0.01, 0.01);
    return {{line[2], line[3]}, {line[0], line[1]}};
}

/// The corners in a copy of the picture that is scaled by `scale`.
PageCorners scaled(const PageCorners &corners, const cv::Point2f &scale)
{
    PageCorners result;
    std::transform(corners.begin(), corners.end(), result.begin(), [&](const cv::Point2f &corner) {
        return cv::Point2f((corner.x + 0.5F) * scale.x - 0.5F, (corner.y + 0.5F) * scale.y - 0.5F);
    });
    return result;
}

cv::Point2f scaleOf(const cv::Mat &picture, const cv::Mat &copy)
{
    return {float(copy.cols) / float(picture.cols), float(copy.rows) / float(picture.rows)};
}

/// Corners found in a small copy, refined in the picture itself.
PageCorners sharpened(const cv::Mat &picture, const cv::Mat &small, const PageCorners &found)
{
    const cv::Point2f scale = scaleOf(small, picture);
    const PageCorners corners = scaled(found, scale);
    const int reach = cvRound(2 * std::max(scale.x, scale.y)) + 1;
    std::array<Line, 4> sides;
    for (size_t i = 0; i < 4; ++i) {
        sides[i] = sharpenedSide(picture, corners[i], corners[(i + 1) % 4], reach);
    }
    return meetings(sides, corners);
}

/**
 * Width to height of the rectangle that a camera sees with these corners, the principal point
 * being the center of the picture (Zhang and He, "Whiteboard scanning and image enhancement",
 * section 4).
 */
double proportions(const PageCorners &corners, const cv::Size &picture)
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
    const cv::Vec3d across = right * topRight - topLeft;
    const cv::Vec3d down = bottom * bottomLeft - topLeft;

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
    const auto length = [focalSquare](const cv::Vec3d &side) {
        return std::sqrt((side[0] * side[0] + side[1] * side[1]) / focalSquare + side[2] * side[2]);
    };
    return length(across) / length(down);
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

cv::Mat warped(const cv::Mat &picture, const cv::Mat &transform, const cv::Size &size)
{
    cv::Mat result;
    cv::warpPerspective(picture, result, transform, size, cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    return result;
}

/// Rotates a picture of `size` about its center so that lines of this slope become level.
cv::Mat levelling(const cv::Size &size, double slope)
{
    cv::Mat rotation = cv::Mat::eye(3, 3, CV_64F);
    const cv::Point2f middle(float(size.width) / 2, float(size.height) / 2);
    cv::getRotationMatrix2D(middle, slope, 1).copyTo(rotation.rowRange(0, 2));
    return rotation;
}

/// How distinctly the ink forms rows of this slope: largest for the slope of the text.
double distinctness(const std::vector<cv::Point> &ink, int height, double slope)
{
    const double tangent = std::tan(slope * CV_PI / 180);
    const int margin = height; // sloping lines leave the picture at its sides
    std::vector<int> rows(size_t(height + 2 * margin));
    for (const cv::Point &point : ink) {
        const int row = cvRound(point.y - tangent * point.x) + margin;
        if (row >= 0 && size_t(row) < rows.size()) {
            ++rows[size_t(row)];
        }
    }
    double sum = 0;
    for (size_t i = 1; i < rows.size(); ++i) {
        const double step = rows[i] - rows[i - 1];
        sum += step * step;
    }
    return sum;
}

/// \param middle  the picture or a shrunken copy, which is made once for both steps
std::optional<PageCorners> findPageBy(const cv::Mat &middle, const cv::Mat &picture)
{
    const cv::Mat small = shrunken(middle, finderSide);
    if (std::min(small.cols, small.rows) < 8 * ringWidth) {
        return {};
    }
    const Contour contour = pageContour(objectsIn(small));
    if (contour.empty()) {
        return {};
    }
    return sharpened(picture, small, refitted(contour, roughCorners(contour)));
}

cv::Mat straightenedBy(const cv::Mat &middle, const cv::Mat &picture, const PageCorners &corners)
{
    const cv::Size size = straightSize(corners, picture.size());
    cv::Mat transform = transformation(corners, size);

    // The skew is measured on a small page, so that the large one is interpolated only once.
    const cv::Mat small = greyOf(middle);
    const double shrink = std::min(1.0, double(skewSide) / std::max(size.width, size.height));
    const cv::Size smallSize(std::max(1, cvRound(size.width * shrink)),
                             std::max(1, cvRound(size.height * shrink)));
    const PageCorners smallCorners = scaled(corners, scaleOf(picture, small));
    const double slope =
        skewAngle(warped(small, transformation(smallCorners, smallSize), smallSize));
    if (slope != 0) {
        transform = levelling(size, slope) * transform;
    }
    return warped(picture, transform, size);
}

} // namespace

std::optional<PageCorners> findPage(const cv::Mat &picture)
{
    return findPageBy(picture, picture);
}

cv::Mat straightened(const cv::Mat &picture, const PageCorners &corners)
{
    return straightenedBy(shrunken(picture, 2 * skewSide), picture, corners);
}

cv::Mat straightenedPage(const cv::Mat &picture)
{
    const cv::Mat middle = shrunken(picture, 2 * skewSide);
    const auto corners = findPageBy(middle, picture);
    return corners ? straightenedBy(middle, picture, *corners) : cv::Mat();
}

double skewAngle(const cv::Mat &page)
{
    const cv::Mat grey = greyOf(shrunken(page, skewSide));
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
    std::vector<cv::Point> points;
    cv::findNonZero(inner, points);
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
        const double centre = best;
        double bestValue = distinctness(tried, inner.rows, centre);
        for (int i = -cvRound(reach / step); i <= cvRound(reach / step); ++i) {
            const double slope = centre + i * step;
            const double value = distinctness(tried, inner.rows, slope);
            if (value > bestValue) {
                bestValue = value;
                best = slope;
            }
        }
        return bestValue;
    };
    constexpr double largestSlope = 5;
    tryAround(some(3000), largestSlope, 0.5);
    const std::vector<cv::Point> many = some(12000);
    const double bestValue = tryAround(many, 0.4, 0.1);
    const double level = distinctness(many, inner.rows, 0);
    // Text that is level within the error of measurement, or no text at all, is left as it is.
    const bool isPlain =
        bestValue > 1.2 * level && std::abs(best) > 0.2 && std::abs(best) < largestSlope;
    return isPlain ? best : 0;
}

} // namespace portable
