// SPDX-License-Identifier: MIT
#include "portable/picture/pagesearch/edges.h"

#include "portable/picture/parallel.h"

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

/// Calls `visit` with some rows at a time, few enough to remain in the processor's cache.
template <class Visit> void inBands(const cv::Range &rows, Visit visit)
{
    constexpr int band = 32;
    inParallel({0, (rows.size() + band - 1) / band}, [&](int i) {
        const int start = rows.start + i * band;
        visit(cv::Range(start, std::min(start + band, rows.end)));
    });
}

/// The rows of a picture reduced: the sums of squares of `reduction` pixels.
class ReducedRows
{
public:
    ReducedRows(const cv::Mat &picture, int reduction)
        : m_picture(picture)
        , m_reduction(reduction)
        , m_columns(size_t(picture.cols / reduction * reduction) * 3)
    {
        m_planes.fill(std::vector<int>(size_t(picture.cols / reduction)));
    }

    /// \return blue, green and red; changed by the next call
    const std::array<std::vector<int>, 3> &row(int y)
    {
        std::fill(m_columns.begin(), m_columns.end(), uint16_t(0));
        for (int i = 0; i < m_reduction; ++i) {
            const uchar *line = m_picture.ptr(y * m_reduction + i);
            for (size_t x = 0; x < m_columns.size(); ++x) {
                m_columns[x] = uint16_t(m_columns[x] + line[x]);
            }
        }
        // What is between the squares is added too, which is faster than leaving it out.
        m_squares = m_columns;
        for (int i = 1; i < m_reduction; ++i) {
            const uint16_t *column = m_columns.data() + ptrdiff_t(3) * i;
            const size_t count = m_columns.size() - size_t(3) * size_t(i);
            for (size_t x = 0; x < count; ++x) {
                m_squares[x] = uint16_t(m_squares[x] + column[x]);
            }
        }
        for (size_t i = 0; i < m_planes.size(); ++i) {
            const uint16_t *square = m_squares.data() + i;
            for (int &sum : m_planes[i]) {
                sum = *square;
                square += ptrdiff_t(3) * m_reduction;
            }
        }
        return m_planes;
    }

private:
    const cv::Mat &m_picture;
    int m_reduction;
    std::vector<uint16_t> m_columns;
    std::vector<uint16_t> m_squares;
    std::array<std::vector<int>, 3> m_planes;
};

/// A picture reduced, a plane for each of its features. CV_32F all
struct Features
{
    explicit Features(const cv::Size &size)
        : rounding(size, CV_32F)
        , colors{cv::Mat(size, CV_32F), cv::Mat(size, CV_32F), cv::Mat(size, CV_32F)}
    {
    }

    cv::Mat rounding; ///< changes of the logarithm that may be due to rounded grey levels
    std::array<cv::Mat, 3> colors; ///< as in Edges
};

/**
 * Lightness, its logarithm, and red and blue relative to it: the light on the desk adds to the
 * logarithm what changes slowly, and hardly changes the colors. Nothing is rounded.
 * \param rows  of the reduced picture
 */
Features sharpFeatures(const cv::Mat &picture, int reduction, const cv::Range &rows)
{
    Features features({picture.cols / reduction, rows.size()});
    const float share = 1 / float(reduction * reduction);
    ReducedRows reduced(picture, reduction);
    for (int y = 0; y < rows.size(); ++y) {
        const auto &[blue, green, red] = reduced.row(rows.start + y);
        auto *light = features.colors[0].ptr<float>(y);
        auto *rounding = features.rounding.ptr<float>(y);
        auto *relativeRed = features.colors[1].ptr<float>(y);
        auto *relativeBlue = features.colors[2].ptr<float>(y);
        for (size_t x = 0; x < green.size(); ++x) {
            light[x] = float(blue[x] + 2 * green[x] + red[x]) * share / 4 + darkness;
            relativeRed[x] = float(red[x] - green[x]) * share / light[x];
            relativeBlue[x] = float(blue[x] - green[x]) * share / light[x];
            rounding[x] = leastChange / light[x];
        }
    }
    cv::log(features.colors[0], features.colors[0]);
    return features;
}

/// The same with smoothed colors.
Features featuresOf(const cv::Mat &picture, int reduction)
{
    constexpr int reach = 2; // of the smoothing, in rows
    Features features({picture.cols / reduction, picture.rows / reduction});
    const cv::Range all(0, features.rounding.rows);
    inBands(all, [&](const cv::Range &rows) {
        const cv::Range around = cv::Range(rows.start - reach, rows.end + reach) & all;
        const cv::Range inner = rows - around.start;
        const Features sharp = sharpFeatures(picture, reduction, around);
        sharp.rounding.rowRange(inner).copyTo(features.rounding.rowRange(rows));
        for (size_t i = 0; i < sharp.colors.size(); ++i) {
            // Reads what is around the rows, too.
            cv::GaussianBlur(sharp.colors[i].rowRange(inner), features.colors[i].rowRange(rows),
                             {5, 5}, 1);
        }
    });
    return features;
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

/**
 * How much the colors change at each pixel, and in which direction: the larger eigenvalue of the
 * sums over all planes of the products of the derivatives (Di Zenzo's tensor), and its vector.
 */
struct Changes
{
    explicit Changes(const std::array<cv::Mat, 3> &colors)
        : size(colors[0].size(), CV_32F, cv::Scalar(0))
        , cosine(size.size(), CV_32F)
        , sine(size.size(), CV_32F)
    {
        inBands({1, size.rows - 1}, [&](const cv::Range &rows) {
            for (int y = rows.start; y < rows.end; ++y) {
                addProducts(colors, y);
            }
            takeRoots({rows, cv::Range(1, size.cols - 1)});
        });
    }

    Direction direction(int x, int y) const
    {
        const float doubled = cv::fastAtan2(sine.at<float>(y, x), cosine.at<float>(y, x));
        return Direction(cvRound(doubled * 256 / 360) & 255); // of 360 degrees
    }

    cv::Mat size; ///< 0 at the border
    cv::Mat cosine; ///< of twice the angle of the direction, of any length; not at the border
    cv::Mat sine;

private:
    void addProducts(const std::array<cv::Mat, 3> &colors, int y)
    {
        const int inner = size.cols - 2;
        auto *sum = size.ptr<float>(y) + 1;
        auto *difference = cosine.ptr<float>(y) + 1;
        auto *mixed = sine.ptr<float>(y) + 1;
        std::fill(difference, difference + inner, 0.0F);
        std::fill(mixed, mixed + inner, 0.0F);
        for (const cv::Mat &plane : colors) {
            const auto *above = plane.ptr<float>(y - 1) + 1;
            const auto *line = plane.ptr<float>(y) + 1;
            const auto *below = plane.ptr<float>(y + 1) + 1;
            for (int x = 0; x < inner; ++x) {
                const float dx = line[x + 1] - line[x - 1];
                const float dy = below[x] - above[x];
                sum[x] += dx * dx + dy * dy;
                difference[x] += dx * dx - dy * dy;
                mixed[x] += 2 * dx * dy;
            }
        }
    }

    void takeRoots(const std::array<cv::Range, 2> &area)
    {
        cv::Mat sum = size(area.data());
        cv::Mat root;
        cv::magnitude(cosine(area.data()), sine(area.data()), root);
        sum += root;
        sum *= 0.125; // half, of derivatives over two pixels
        cv::sqrt(sum, sum);
    }
};

/// True where the change is larger than at both neighbors across the edge.
bool isCrest(const Changes &changes, const cv::Point &place)
{
    const float cosine = changes.cosine.at<float>(place);
    const float sine = changes.sine.at<float>(place);
    // The neighbor is a diagonal one from 25 to 65 degrees, where its step rounds to 1 both ways.
    constexpr float steep = 0.743F; // the square of the tangent of 2 * 65 degrees, inverted
    cv::Point step(cosine > 0 ? 1 : 0, cosine > 0 ? 0 : 1);
    if (cosine * cosine < steep * sine * sine) {
        step = {sine > 0 ? 1 : -1, 1};
    }
    const float here = changes.size.at<float>(place);
    return here >= changes.size.at<float>(place + step)
        && here > changes.size.at<float>(place - step);
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
    constexpr int most = 16; // the sums of such squares have at most 16 bits
    return std::clamp(cvRound(std::max(size.width, size.height) / searchedSide), 1, most);
}

Edges findEdges(const cv::Mat &picture)
{
    Edges edges;
    edges.reduction = reductionOf(picture.size());
    Features features = featuresOf(picture, edges.reduction);
    const Changes changes(features.colors);
    const cv::Mat usual = usualChange(changes.size);

    edges.weight = cv::Mat::zeros(changes.size.size(), CV_8U);
    edges.normal = cv::Mat::zeros(changes.size.size(), CV_8U);
    inParallel({1, changes.size.rows - 1}, [&](int y) {
        const auto *here = changes.size.ptr<float>(y);
        const auto *around = usual.ptr<float>(y / 2);
        const auto *rounding = features.rounding.ptr<float>(y);
        uchar *weight = edges.weight.ptr(y);
        uchar *normal = edges.normal.ptr(y);
        for (int x = 1; x + 1 < changes.size.cols; ++x) {
            const float usually = around[x / 2] + rounding[x];
            if (here[x] < leastRatio * usually) {
                continue;
            }
            const float ratio = here[x] / usually;
            if (isCrest(changes, {x, y})) {
                const float share = (ratio - leastRatio + 0.5F) / (clearRatio - leastRatio + 0.5F);
                weight[x] = uchar(std::min(255.0F, 255 * share));
                normal[x] = changes.direction(x, y);
            }
        }
    });
    edges.colors = std::move(features.colors);
    return edges;
}

} // namespace portable::pagesearch
