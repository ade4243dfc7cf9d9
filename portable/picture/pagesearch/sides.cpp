// SPDX-License-Identifier: MIT
#include "portable/picture/pagesearch/sides.h"

#include "portable/picture/pagesearch/lines.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

namespace portable::pagesearch {

namespace {

constexpr int samples = 48; // along a side
constexpr int breadth = 2; // pixels along the side, to each side of a sample, that are averaged
constexpr float nearLine = 1; // pixels

cv::Vec3f pixelAt(const cv::Mat &picture, const cv::Point2f &place)
{
    return picture.at<cv::Vec3b>(std::clamp(cvRound(place.y), 0, picture.rows - 1),
                                 std::clamp(cvRound(place.x), 0, picture.cols - 1));
}

/// The picture along a side: a row for each sample, across the side from outside to inside.
class Strip
{
public:
    Strip(const cv::Mat &picture, const cv::Point2f &from, const cv::Point2f &to, int reach)
        : m_from(from)
        , m_side(to - from)
        , m_reach(reach)
        , m_pixels(samples, 2 * reach + 3, CV_32FC3)
    {
        m_along = m_side / std::max(cv::norm(m_side), 1e-3);
        for (int i = 0; i < samples; ++i) {
            for (int x = 0; x < m_pixels.cols; ++x) {
                const cv::Point2f middle = place(i, float(x - reach - 1));
                cv::Vec3f sum(0, 0, 0);
                for (int step = -breadth; step <= breadth; ++step) {
                    sum += pixelAt(picture, middle + m_along * float(step));
                }
                m_pixels.at<cv::Vec3f>(i, x) = sum / float(2 * breadth + 1);
            }
        }
    }

    cv::Point2f place(int sample, float offset) const
    {
        const float along = 0.08F + 0.84F * (float(sample) + 0.5F) / samples; // corners are round
        const cv::Point2f inwards(-m_along.y, m_along.x);
        return m_from + m_side * along + inwards * offset;
    }

    /// The strongest change of all samples together: what the edge looks like.
    cv::Vec3f typicalChange() const
    {
        cv::Mat mean;
        cv::reduce(m_pixels, mean, 0, cv::REDUCE_AVG);
        cv::Vec3f best(0, 0, 0);
        for (int x = 1; x + 1 < mean.cols; ++x) {
            const cv::Vec3f change = mean.at<cv::Vec3f>(0, x + 1) - mean.at<cv::Vec3f>(0, x - 1);
            if (cv::norm(change) > cv::norm(best)) {
                best = change;
            }
        }
        return best;
    }

    /// Where a sample changes most in this way, as the offset from the side.
    float edgeOf(int sample, const cv::Vec3f &way) const
    {
        const auto *row = m_pixels.ptr<cv::Vec3f>(sample);
        const auto change = [&](int x) { return (row[x + 1] - row[x - 1]).dot(way); };
        int best = 1;
        for (int x = 2; x + 1 < m_pixels.cols; ++x) {
            if (change(x) > change(best)) {
                best = x;
            }
        }
        if (best == 1 || best + 2 == m_pixels.cols) {
            return float(best - m_reach - 1);
        }
        // The top of the parabola through the three changes.
        const float before = change(best - 1);
        const float after = change(best + 1);
        const float curvature = 2 * change(best) - before - after;
        const float shift = curvature > 0 ? 0.5F * (after - before) / curvature : 0;
        return float(best - m_reach - 1) + std::clamp(shift, -0.5F, 0.5F);
    }

    /**
     * The share of the difference between both ends of the strip that lies within `reach` pixels
     * of the line: of all samples together.
     */
    float sharpness(const Line &line, int reach) const
    {
        cv::Vec3f wide(0, 0, 0);
        cv::Vec3f close(0, 0, 0);
        for (int i = 0; i < samples; ++i) {
            const cv::Point2f offset = line.point - place(i, 0);
            const float across = m_along.x * line.along.y - m_along.y * line.along.x;
            const float along = m_along.dot(line.along);
            // Where the line crosses this sample's row.
            const float distance = (m_along.x * offset.y - m_along.y * offset.x)
                - m_along.dot(offset) * across / std::max(along, 0.5F);
            const auto *row = m_pixels.ptr<cv::Vec3f>(i);
            const auto at = [&](float inwards) {
                const int x = cvRound(distance + inwards) + m_reach + 1;
                return row[std::clamp(x, 0, m_pixels.cols - 1)];
            };
            wide += at(float(m_reach)) - at(-float(m_reach));
            close += at(float(reach)) - at(-float(reach));
        }
        return float(cv::norm(close) / std::max(cv::norm(wide), double(samples)));
    }

private:
    cv::Point2f m_from;
    cv::Point2f m_side;
    cv::Point2f m_along;
    int m_reach;
    cv::Mat m_pixels;
};

/// The line through the edge; the side itself when most samples disagree.
Line refinedSide(const Strip &strip, const Line &side)
{
    const cv::Vec3f way = strip.typicalChange();
    std::vector<cv::Point2f> edge;
    edge.reserve(samples);
    for (int i = 0; i < samples; ++i) {
        edge.push_back(strip.place(i, strip.edgeOf(i, way)));
    }
    cv::Vec4f fitted;
    cv::fitLine(edge, fitted, cv::DIST_HUBER, 0, 0.01, 0.01);
    const Line line{{fitted[2], fitted[3]}, {fitted[0], fitted[1]}};
    const auto agreeing = std::count_if(edge.begin(), edge.end(), [&](const cv::Point2f &point) {
        const cv::Point2f offset = point - line.point;
        return std::abs(line.along.x * offset.y - line.along.y * offset.x) < nearLine;
    });
    return agreeing < samples / 2 ? side : line;
}

/// Where two lines cross; `otherwise` when that is far from it.
cv::Point2f corner(const Line &a, const Line &b, const cv::Point2f &otherwise, double far)
{
    const double sine = double(a.along.x) * b.along.y - double(a.along.y) * b.along.x;
    if (std::abs(sine) < 0.1) {
        return otherwise;
    }
    const cv::Point2f offset = b.point - a.point;
    const double distance = (double(offset.x) * b.along.y - double(offset.y) * b.along.x) / sine;
    const cv::Point2f point = a.point + a.along * float(distance);
    return cv::norm(point - otherwise) < far ? point : otherwise;
}

} // namespace

Outline refined(const cv::Mat &picture, const Corners &corners, int reduction)
{
    const int reach = reduction + 2;
    std::array<Line, 4> sides;
    std::array<float, 4> sharpness{};
    for (size_t i = 0; i < 4; ++i) {
        const cv::Point2f &from = corners[i];
        const cv::Point2f &to = corners[(i + 1) % 4];
        const Strip strip(picture, from, to, reach);
        sides[i] = refinedSide(strip, {from, (to - from) / std::max(cv::norm(to - from), 1e-3)});
        sharpness[i] = strip.sharpness(sides[i], std::max(1, cvRound(0.7 * reduction)));
    }
    Outline outline;
    for (size_t i = 0; i < 4; ++i) {
        outline.corners[i] = corner(sides[(i + 3) % 4], sides[i], corners[i], 3.0 * reach);
    }
    std::sort(sharpness.begin(), sharpness.end());
    outline.sharpness = (sharpness[1] + sharpness[2]) / 2;
    return outline;
}

} // namespace portable::pagesearch
