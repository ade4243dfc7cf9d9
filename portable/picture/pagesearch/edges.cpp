// SPDX-License-Identifier: MIT
#include "portable/picture/pagesearch/edges.h"

#include "portable/picture/pagesearch/features.h"
#include "portable/picture/parallel.h"
#include "portable/picture/vectors.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace portable::pagesearch {

namespace {

constexpr int neighborhood = 33; // pixels, the side of the square that an edge is compared with
constexpr float leastRatio = 1.5F; // of an edge to what surrounds it
constexpr float clearRatio = 3; // the ratio of an edge of full weight

/**
 * Calls `visit` with the first of each four pixels of a row but its ends; some come twice.
 * \param columns  6 or more
 */
template <class Visit> void inFours(int columns, Visit visit)
{
    const int last = columns - 1 - 4;
    for (int x = 1; x < last; x += 4) {
        visit(x);
    }
    visit(last);
}

/**
 * How much the colors change at the pixels of some rows, and in which direction: the larger
 * eigenvalue of the sums over all planes of the products of the derivatives (Di Zenzo's tensor),
 * and its vector.
 */
class Changes
{
public:
    /// \param rows  without the first and the last of all
    Changes(const std::array<cv::Mat, 3> &colors, const cv::Range &rows)
        : m_colors(colors)
        , m_first(rows.start - 1)
        , m_size(rows.size() + 2, colors[0].cols, CV_32F)
        , m_cosine(m_size.size(), CV_32F)
        , m_sine(m_size.size(), CV_32F)
    {
        for (cv::Mat *plane : {&m_size, &m_cosine, &m_sine}) {
            plane->col(0) = 0;
            plane->col(plane->cols - 1) = 0;
        }
        for (int y = m_first; y <= rows.end; ++y) {
            if (y == 0 || y == colors[0].rows - 1) {
                m_size.row(y - m_first) = 0;
            } else {
                measure(y);
            }
        }
    }

    /// The size of the change at each pixel of a row, 0 at the border.
    const float *size(int y) const { return m_size.ptr<float>(y - m_first); }

    /// The sizes that are larger than at both neighbors across the edge; 0 elsewhere.
    void crests(int y, float *result) const
    {
        const float *above = size(y - 1);
        const float *here = size(y);
        const float *below = size(y + 1);
        const auto *cosines = m_cosine.ptr<float>(y - m_first);
        const auto *sines = m_sine.ptr<float>(y - m_first);
        result[0] = 0;
        result[m_size.cols - 1] = 0;
        inFours(m_size.cols, [=](int x) {
            const Floats cosine = floatsAt(cosines + x);
            const Floats sine = floatsAt(sines + x);
            // The neighbor is a diagonal one from 25 to 65 degrees, where its step rounds to 1
            // both ways.
            constexpr float steep = 0.743F; // the square of the tangent of 2 * 65 degrees, inverted
            const Numbers isDiagonal = cosine * cosine < steep * sine * sine;
            const Floats next = isDiagonal
                ? (sine > 0 ? floatsAt(below + x + 1) : floatsAt(below + x - 1))
                : (cosine > 0 ? floatsAt(here + x + 1) : floatsAt(below + x));
            const Floats last = isDiagonal
                ? (sine > 0 ? floatsAt(above + x - 1) : floatsAt(above + x + 1))
                : (cosine > 0 ? floatsAt(here + x - 1) : floatsAt(above + x));
            const Floats size = floatsAt(here + x);
            store(result + x, Floats(Numbers(size) & (size >= next) & (size > last)));
        });
    }

    /// The Direction of the change at each pixel of the rows, CV_8U.
    void directions(cv::Mat result) const
    {
        cv::Mat doubled;
        cv::phase(m_cosine.rowRange(1, m_cosine.rows - 1), m_sine.rowRange(1, m_sine.rows - 1),
                  doubled, true);
        doubled.convertTo(result, CV_8U, 256.0 / 360); // the last half of a step becomes 255, not 0
    }

private:
    void measure(int y)
    {
        auto *size = m_size.ptr<float>(y - m_first);
        auto *cosines = m_cosine.ptr<float>(y - m_first);
        auto *sines = m_sine.ptr<float>(y - m_first);
        struct Lines
        {
            const float *above;
            const float *here;
            const float *below;
        };
        std::array<Lines, 3> lines{};
        std::transform(m_colors.begin(), m_colors.end(), lines.begin(), [y](const cv::Mat &plane) {
            return Lines{plane.ptr<float>(y - 1), plane.ptr<float>(y), plane.ptr<float>(y + 1)};
        });
        inFours(m_size.cols, [=](int x) {
            Floats sum{};
            Floats cosine{}; // of twice the angle, of any length
            Floats sine{};
            for (const Lines &color : lines) {
                const Floats dx = floatsAt(color.here + x + 1) - floatsAt(color.here + x - 1);
                const Floats dy = floatsAt(color.below + x) - floatsAt(color.above + x);
                sum += dx * dx + dy * dy;
                cosine += dx * dx - dy * dy;
                sine += 2 * dx * dy;
            }
            store(cosines + x, cosine);
            store(sines + x, sine);
            // Half, of derivatives over two pixels.
            store(size + x, rootsOf(0.125F * (sum + rootsOf(cosine * cosine + sine * sine))));
        });
    }

    const std::array<cv::Mat, 3> &m_colors;
    int m_first; // row of all that these begin with
    cv::Mat m_size;
    cv::Mat m_cosine;
    cv::Mat m_sine;
};

/// The largest of the changes across each edge, and what is usual around them.
struct Crests
{
    cv::Mat size; ///< CV_32F; 0 at all other pixels. Without the first and the last row
    cv::Mat direction; ///< as in Edges, of all changes
    cv::Mat usual; ///< CV_32F, the logarithm, for each two by two pixels

    explicit Crests(const std::array<cv::Mat, 3> &colors)
        : size(colors[0].size(), CV_32F)
        , direction(cv::Mat::zeros(size.size(), CV_8U))
        , usual((size.rows + 1) / 2, (size.cols + 1) / 2, CV_32F, cv::Scalar(std::log(nothing)))
    {
        inBands({1, size.rows - 1}, [&](const cv::Range &rows) {
            const Changes changes(colors, rows);
            changes.directions(direction.rowRange(rows));
            for (int y = rows.start; y < rows.end; ++y) {
                changes.crests(y, size.ptr<float>(y));
                if (y % 2 == 0) {
                    sample(changes.size(y), y / 2);
                }
            }
        });
        // The geometric mean, which a few lines of text nearby hardly change.
        cv::blur(usual, usual, {neighborhood / 2, neighborhood / 2}, {-1, -1}, cv::BORDER_REFLECT);
    }

private:
    static constexpr float nothing = 1e-5F;

    /// A quarter of the pixels is enough.
    void sample(const float *sizes, int y)
    {
        cv::Mat row = usual.row(y);
        auto *to = row.ptr<float>();
        for (size_t x = 0; x < size_t(row.cols); ++x) {
            to[x] = sizes[2 * x] + nothing;
        }
        cv::log(row, row);
    }
};

/// What is usual in a row, from the logarithm for each two pixels.
void expand(const cv::Mat &logarithm, std::vector<float> &usually)
{
    cv::Mat row;
    cv::exp(logarithm, row);
    const auto *from = row.ptr<float>();
    float *__restrict to = usually.data();
    for (size_t i = 0; i < usually.size() / 2; ++i) {
        to[2 * i] = from[i];
        to[2 * i + 1] = from[i];
    }
}

/**
 * The weights of the edges in a row.
 * \param crests    as in Crests
 * \param usually   what an edge is compared with at each pixel,
 * \param rounding  to which this is added
 * \param weight    0 before
 */
void weigh(const float *crests, const float *usually, const float *rounding, int columns,
           uchar *weight)
{
    inFours(columns, [=](int first) {
        // Few of four pixels have one.
        const Floats compared = floatsAt(usually + first) + floatsAt(rounding + first);
        if (!isAnySet(floatsAt(crests + first) >= leastRatio * compared)) {
            return;
        }
        for (int i = 0; i < 4; ++i) {
            const float ratio = crests[first + i] / compared[i];
            if (ratio >= leastRatio) {
                const float share = (ratio - leastRatio + 0.5F) / (clearRatio - leastRatio + 0.5F);
                weight[first + i] = uchar(std::min(255.0F, 255 * share));
            }
        }
    });
}

} // namespace

Direction directionOf(const cv::Point2f &vector)
{
    return Direction(cvRound(std::atan2(vector.y, vector.x) * 256 / float(CV_PI)) & 255);
}

EdgesAcross::EdgesAcross(const Edges &edges, const cv::Point2f &across)
    : m_weights(edges.weight.data)
    , m_normals(edges.normal.data)
    , m_stride(ptrdiff_t(edges.weight.step))
    , m_width(edges.weight.cols)
    , m_height(edges.weight.rows)
    , m_normal(directionOf(across))
{
    for (size_t i = 0; i < m_offsets.size(); ++i) {
        m_offsets[i] = across * float(int(i) - reach);
    }
}

Edges findEdges(const cv::Mat &picture)
{
    Edges edges;
    edges.reduction = reductionOf(picture.size());
    Features features = featuresOf(picture, edges.reduction);
    const cv::Size size = features.rounding.size();
    const Crests crests(features.colors);
    edges.weight = cv::Mat::zeros(size, CV_8U);
    inBands({1, size.height - 1}, [&](const cv::Range &rows) {
        std::vector<float> usually(size_t(crests.usual.cols) * 2);
        for (int y = rows.start; y < rows.end; ++y) {
            if (y == rows.start || y % 2 == 0) {
                expand(crests.usual.row(y / 2), usually);
            }
            weigh(crests.size.ptr<float>(y), usually.data(), features.rounding.ptr<float>(y),
                  size.width, edges.weight.ptr(y));
        }
    });
    edges.normal = crests.direction;
    edges.colors = std::move(features.colors);
    return edges;
}

} // namespace portable::pagesearch
