// SPDX-License-Identifier: MIT
#include "portable/picture/pagesearch/edges.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace portable::pagesearch {

namespace {

constexpr double searchedSide = 640; // about that many pixels: the longer side of what is searched
constexpr int neighborhood = 33; // pixels, the side of the square that an edge is compared with
constexpr float darkness = 10; // grey levels: differences in what is darker are mostly noise
constexpr float leastChange = 0.3F; // grey levels within a pixel; less may be rounding
constexpr float leastRatio = 1.5F; // of an edge to what surrounds it
constexpr int supportingDirection = 32; // of a line; see sameDirection
constexpr float clearRatio = 3; // the ratio of an edge of full weight

/// The means of squares of `reduction` pixels, not rounded. CV_32FC3
cv::Mat reduced(const cv::Mat &picture, int reduction)
{
    const cv::Size size(picture.cols / reduction, picture.rows / reduction);
    const int width = size.width * reduction * 3;
    const float share = 1 / float(reduction * reduction);
    cv::Mat result(size, CV_32FC3);
    std::vector<uint16_t> sums(size_t(width), 0);
    for (int y = 0; y < size.height; ++y) {
        std::fill(sums.begin(), sums.end(), uint16_t(0));
        for (int i = 0; i < reduction; ++i) {
            const uchar *line = picture.ptr(y * reduction + i);
            for (int x = 0; x < width; ++x) {
                sums[size_t(x)] = uint16_t(sums[size_t(x)] + line[x]);
            }
        }
        auto *row = result.ptr<cv::Vec3f>(y);
        const uint16_t *next = sums.data();
        for (int x = 0; x < size.width; ++x) {
            int blue = 0;
            int green = 0;
            int red = 0;
            for (int i = 0; i < reduction; ++i, next += 3) {
                blue += next[0];
                green += next[1];
                red += next[2];
            }
            row[x] = {float(blue) * share, float(green) * share, float(red) * share};
        }
    }
    return result;
}

/// Lightness in grey levels, above 0.
cv::Mat lightnessOf(const cv::Mat &bgr)
{
    cv::Mat lightness;
    cv::transform(bgr, lightness, cv::Matx14f(0.25F, 0.5F, 0.25F, darkness));
    return lightness;
}

/**
 * Log lightness, and red and blue relative to the lightness: the light on the desk adds to the
 * first what changes slowly, and hardly changes the others. CV_32FC3
 */
cv::Mat relativeColors(const cv::Mat &bgr, const cv::Mat &lightness)
{
    cv::Mat logarithm;
    cv::log(lightness, logarithm);
    cv::Mat colors(bgr.size(), CV_32FC3);
    for (int y = 0; y < bgr.rows; ++y) {
        const auto *line = bgr.ptr<cv::Vec3f>(y);
        const auto *light = lightness.ptr<float>(y);
        const auto *first = logarithm.ptr<float>(y);
        auto *color = colors.ptr<cv::Vec3f>(y);
        for (int x = 0; x < bgr.cols; ++x) {
            const cv::Vec3f &pixel = line[x];
            const float scale = 1 / light[x];
            color[x] = {first[x], (pixel[2] - pixel[1]) * scale, (pixel[0] - pixel[1]) * scale};
        }
    }
    cv::GaussianBlur(colors, colors, {5, 5}, 1);
    return colors;
}

/**
 * What is usual around each pixel: the geometric mean, which a few lines of text nearby hardly
 * change. A quarter of the pixels is enough for it.
 * \return of half the size
 */
cv::Mat usualChange(const cv::Mat &change)
{
    cv::Mat mean;
    cv::resize(change, mean, {(change.cols + 1) / 2, (change.rows + 1) / 2}, 0, 0,
               cv::INTER_NEAREST);
    mean += 1e-5F;
    cv::log(mean, mean);
    cv::blur(mean, mean, {neighborhood / 2, neighborhood / 2}, {-1, -1}, cv::BORDER_REFLECT);
    cv::exp(mean, mean);
    return mean;
}

/// The sums over all channels of the products of the derivatives (Di Zenzo's tensor).
struct Tensor
{
    float xx = 0;
    float xy = 0;
    float yy = 0;

    /// The largest change in any direction.
    float change() const
    {
        const float difference = xx - yy;
        return std::sqrt(0.5F * (xx + yy + std::sqrt(difference * difference + 4 * xy * xy)));
    }

    /// The direction of the largest change.
    Direction direction() const
    {
        const float doubled = cv::fastAtan2(2 * xy, xx - yy); // in degrees, of 360
        return Direction(cvRound(doubled * 256 / 360) & 255);
    }
};

Tensor tensorAt(const cv::Vec3f *above, const cv::Vec3f *line, const cv::Vec3f *below, int x)
{
    Tensor tensor;
    for (int i = 0; i < 3; ++i) {
        const float dx = 0.5F * (line[x + 1][i] - line[x - 1][i]);
        const float dy = 0.5F * (below[x][i] - above[x][i]);
        tensor.xx += dx * dx;
        tensor.xy += dx * dy;
        tensor.yy += dy * dy;
    }
    return tensor;
}

/// Calls `visit` with each inner pixel and its tensor.
template <class Visit> void visitTensors(const cv::Mat &colors, int y, Visit visit)
{
    const auto *above = colors.ptr<cv::Vec3f>(y - 1);
    const auto *line = colors.ptr<cv::Vec3f>(y);
    const auto *below = colors.ptr<cv::Vec3f>(y + 1);
    for (int x = 1; x + 1 < colors.cols; ++x) {
        visit(x, [=] { return tensorAt(above, line, below, x); });
    }
}

cv::Mat changes(const cv::Mat &colors)
{
    cv::Mat result(colors.size(), CV_32F, cv::Scalar(0));
    for (int y = 1; y + 1 < colors.rows; ++y) {
        auto *row = result.ptr<float>(y);
        visitTensors(colors, y, [row](int x, auto tensor) { row[x] = tensor().change(); });
    }
    return result;
}

/// The neighboring pixel in each direction.
std::array<cv::Point, 256> neighbors()
{
    std::array<cv::Point, 256> result;
    for (size_t i = 0; i < result.size(); ++i) {
        const double angle = double(i) * CV_PI / 256;
        result[i] = {cvRound(std::cos(angle) * 1.2), cvRound(std::sin(angle) * 1.2)};
    }
    return result;
}

/// True where the change is larger than at both neighbors across the edge.
bool isCrest(const cv::Mat &change, const cv::Point &place, Direction direction)
{
    static const std::array<cv::Point, 256> steps = neighbors();
    const cv::Point &step = steps[direction];
    const float here = change.at<float>(place);
    return here >= change.at<float>(place + step) && here > change.at<float>(place - step);
}

} // namespace

Direction directionOf(const cv::Point2f &vector)
{
    return Direction(cvRound(std::atan2(vector.y, vector.x) * 256 / float(CV_PI)) & 255);
}

NearEdge edgeNear(const Edges &edges, const cv::Point2f &place, const cv::Point2f &across,
                  Direction normal)
{
    NearEdge found;
    for (int offset = -2; offset <= 2; ++offset) {
        const cv::Point pixel(cvRound(place.x + across.x * float(offset)),
                              cvRound(place.y + across.y * float(offset)));
        const bool isInside = unsigned(pixel.x) < unsigned(edges.weight.cols)
            && unsigned(pixel.y) < unsigned(edges.weight.rows);
        const int weight = isInside ? edges.weight.at<uchar>(pixel) : 0;
        if (weight == 0
            || turnBetween(edges.normal.at<uchar>(pixel), normal) > supportingDirection) {
            continue;
        }
        found.weightNearby = std::max(found.weightNearby, weight);
        if (std::abs(offset) <= 1) {
            found.weight = std::max(found.weight, weight);
        }
    }
    return found;
}

int reductionOf(const cv::Size &size)
{
    return std::max(1, cvRound(std::max(size.width, size.height) / searchedSide));
}

Edges findEdges(const cv::Mat &picture)
{
    Edges edges;
    edges.reduction = reductionOf(picture.size());
    const cv::Mat bgr = reduced(picture, edges.reduction);
    const cv::Mat lightness = lightnessOf(bgr);
    edges.colors = relativeColors(bgr, lightness);
    const cv::Mat change = changes(edges.colors);
    const cv::Mat usual = usualChange(change);

    edges.weight = cv::Mat::zeros(change.size(), CV_8U);
    edges.normal = cv::Mat::zeros(change.size(), CV_8U);
    for (int y = 1; y + 1 < change.rows; ++y) {
        const auto *here = change.ptr<float>(y);
        const auto *around = usual.ptr<float>(y / 2);
        const auto *light = lightness.ptr<float>(y);
        uchar *weight = edges.weight.ptr(y);
        uchar *normal = edges.normal.ptr(y);
        visitTensors(edges.colors, y, [&](int x, auto tensor) {
            const float ratio = here[x] / (around[x / 2] + leastChange / light[x]);
            if (ratio < leastRatio) {
                return;
            }
            const Direction direction = tensor().direction();
            if (isCrest(change, {x, y}, direction)) {
                const float share = (ratio - leastRatio + 0.5F) / (clearRatio - leastRatio + 0.5F);
                weight[x] = uchar(std::min(255.0F, 255 * share));
                normal[x] = direction;
            }
        });
    }
    return edges;
}

} // namespace portable::pagesearch
