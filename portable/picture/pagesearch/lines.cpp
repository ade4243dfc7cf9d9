// SPDX-License-Identifier: MIT
#include "portable/picture/pagesearch/lines.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace portable::pagesearch {

namespace {

// 256ths of 180 degrees. Where a pattern meets a side, the edges of the side sway.
constexpr int sameDirection = 40;
constexpr int similarDirection = 20; // of the parts of a curve
constexpr double maxBend = 0.8; // pixels, the standard deviation from a straight line
constexpr float leastSegment = 8; // pixels
constexpr float leastLine = 16; // pixels of edge
constexpr size_t maxSegments = 700; // text has thousands of short ones
constexpr float nearby = 1.3F; // pixels from a line
constexpr float inLine = 0.15F; // the largest sine between a line and a segment of it

/// Sums over weighted points, from which a line through them follows.
struct Moments
{
    double weight = 0;
    double x = 0;
    double y = 0;
    double xx = 0;
    double xy = 0;
    double yy = 0;

    void add(double px, double py, double by)
    {
        weight += by;
        x += by * px;
        y += by * py;
        xx += by * px * px;
        xy += by * px * py;
        yy += by * py * py;
    }

    void add(const Moments &other)
    {
        weight += other.weight;
        x += other.x;
        y += other.y;
        xx += other.xx;
        xy += other.xy;
        yy += other.yy;
    }

    /// The mean square distance from the line, in square pixels.
    double bend() const
    {
        const double varianceX = xx / weight - x * x / weight / weight;
        const double varianceY = yy / weight - y * y / weight / weight;
        const double covariance = xy / weight - x * y / weight / weight;
        return 0.5 * (varianceX + varianceY - std::hypot(varianceX - varianceY, 2 * covariance));
    }

    Line line() const
    {
        const double middleX = x / weight;
        const double middleY = y / weight;
        const double angle = 0.5
            * std::atan2(2 * (xy / weight - middleX * middleY),
                         (xx / weight - middleX * middleX) - (yy / weight - middleY * middleY));
        return {{float(middleX), float(middleY)}, {float(std::cos(angle)), float(std::sin(angle))}};
    }
};

/// Adjacent edges of about the same direction.
struct Segment
{
    Moments moments;
    cv::Point2f begin;
    cv::Point2f end;

    float length() const { return float(cv::norm(end - begin)); }
};

float offsetFrom(const Line &line, const cv::Point2f &point)
{
    const cv::Point2f offset = point - line.point;
    return std::abs(line.along.x * offset.y - line.along.y * offset.x);
}

float placeOn(const Line &line, const cv::Point2f &point)
{
    return line.along.dot(point - line.point);
}

/// Unit vectors of twice the angle of each direction.
std::array<cv::Point2f, 256> doubledDirections()
{
    std::array<cv::Point2f, 256> result;
    for (size_t i = 0; i < result.size(); ++i) {
        const double angle = double(i) * CV_PI / 128;
        result[i] = {float(std::cos(angle)), float(std::sin(angle))};
    }
    return result;
}

bool isInLine(const Segment &segment, const Line &line)
{
    const cv::Point2f along = segment.end - segment.begin;
    const float turn = line.along.x * along.y - line.along.y * along.x;
    return offsetFrom(line, segment.begin) <= nearby && offsetFrom(line, segment.end) <= nearby
        && std::abs(turn) <= inLine * segment.length();
}

/// Grows a segment from one edge pixel; clears the weight of its pixels in `left`.
class SegmentGrower
{
public:
    SegmentGrower(const Edges &edges)
        : m_edges(edges)
        , m_left(edges.weight.clone())
    {
    }

    std::vector<Segment> all()
    {
        std::vector<Segment> segments;
        for (int y = 1; y + 1 < m_left.rows; ++y) {
            for (int x = 1; x + 1 < m_left.cols; ++x) {
                if (m_left.at<uchar>(y, x) == 0) {
                    continue;
                }
                const Segment segment = straight({x, y});
                if (segment.length() >= leastSegment) {
                    segments.push_back(segment);
                }
            }
        }
        return segments;
    }

private:
    /// A curve is taken in parts.
    Segment straight(const cv::Point &seed)
    {
        const Segment segment = grown(seed, sameDirection);
        if (segment.moments.bend() <= maxBend * maxBend) {
            return segment;
        }
        for (const cv::Point &point : m_points) {
            m_left.at<uchar>(point) = m_edges.weight.at<uchar>(point);
        }
        return grown(seed, similarDirection);
    }

    Segment grown(const cv::Point &seed, int tolerance)
    {
        static const std::array<cv::Point2f, 256> doubled = doubledDirections();
        const auto leastCosine = float(std::cos(tolerance * CV_PI / 128));
        m_points.assign(1, seed);
        m_left.at<uchar>(seed) = 0;
        Segment segment;
        cv::Point2f sum; // directions are averaged with their angles doubled
        for (size_t i = 0; i < m_points.size(); ++i) {
            const cv::Point point = m_points[i];
            segment.moments.add(point.x, point.y, m_edges.weight.at<uchar>(point));
            sum += doubled[m_edges.normal.at<uchar>(point)];
            const float least = leastCosine * std::sqrt(sum.dot(sum));
            takeNeighbors(point, [&](uchar normal) { return sum.dot(doubled[normal]) >= least; });
        }
        const Line line = segment.moments.line();
        float first = 0;
        float last = 0;
        for (const cv::Point &point : m_points) {
            const float place = placeOn(line, cv::Point2f(point));
            first = std::min(first, place);
            last = std::max(last, place);
        }
        segment.begin = line.point + line.along * first;
        segment.end = line.point + line.along * last;
        return segment;
    }

    template <class Condition> void takeNeighbors(const cv::Point &point, Condition isSimilar)
    {
        for (int y = point.y - 1; y <= point.y + 1; ++y) {
            for (int x = point.x - 1; x <= point.x + 1; ++x) {
                uchar &weight = m_left.at<uchar>(y, x); // edges keep a pixel from the border
                if (weight > 0 && isSimilar(m_edges.normal.at<uchar>(y, x))) {
                    weight = 0;
                    m_points.push_back({x, y});
                }
            }
        }
    }

    const Edges &m_edges;
    cv::Mat m_left;
    std::vector<cv::Point> m_points;
};

/// A line through segments, and how much edge it has.
struct Candidate
{
    Line line;
    float length = 0; ///< of the segments together
    float extent = 0; ///< from the first to the last of them

    /// Long and with few gaps, like the sides of paper and unlike the grain of wood.
    float rank() const { return length * length / std::max(extent, length); }
};

/**
 * Extends a segment by others in line with it. The gap may be as long as what is known so far:
 * that is how far its direction can be trusted.
 */
Candidate extended(size_t seed, const std::vector<Segment> &segments, std::vector<bool> &isUsed)
{
    std::vector<bool> isTaken(segments.size(), false);
    isTaken[seed] = true;
    Moments moments = segments[seed].moments;
    Candidate candidate;
    candidate.line = moments.line();
    candidate.length = segments[seed].length();
    float first = placeOn(candidate.line, segments[seed].begin);
    float last = placeOn(candidate.line, segments[seed].end);
    if (first > last) {
        std::swap(first, last);
    }
    for (bool isGrowing = true; isGrowing;) {
        isGrowing = false;
        const float reach = std::max(20.0F, last - first);
        const Line line = candidate.line;
        for (size_t i = 0; i < segments.size(); ++i) {
            const Segment &segment = segments[i];
            if (isTaken[i] || !isInLine(segment, line)) {
                continue;
            }
            const float begin = placeOn(line, segment.begin);
            const float end = placeOn(line, segment.end);
            if (std::min(begin, end) > last + reach || std::max(begin, end) < first - reach) {
                continue;
            }
            isTaken[i] = true;
            isGrowing = true;
            moments.add(segment.moments);
            candidate.length += segment.length();
        }
        if (isGrowing) {
            candidate.line = moments.line();
            first = 0;
            last = 0;
            for (size_t i = 0; i < segments.size(); ++i) {
                if (isTaken[i]) {
                    for (const cv::Point2f &end : {segments[i].begin, segments[i].end}) {
                        first = std::min(first, placeOn(candidate.line, end));
                        last = std::max(last, placeOn(candidate.line, end));
                    }
                }
            }
        }
    }
    candidate.extent = last - first;
    for (size_t i = 0; i < segments.size(); ++i) {
        isUsed[i] = isUsed[i] || isTaken[i];
    }
    return candidate;
}

/// Moves the point of a line to where it enters the picture.
Line clipped(const Line &line, const cv::Size &size, float &length)
{
    float first = -std::numeric_limits<float>::max();
    float last = std::numeric_limits<float>::max();
    const auto clip = [&](float point, float along, float most) {
        if (std::abs(along) < 1e-6F) {
            return;
        }
        const float a = (1 - point) / along;
        const float b = (most - point) / along;
        first = std::max(first, std::min(a, b));
        last = std::min(last, std::max(a, b));
    };
    clip(line.point.x, line.along.x, float(size.width) - 2);
    clip(line.point.y, line.along.y, float(size.height) - 2);
    length = std::max(0.0F, last - first);
    return {line.point + line.along * first, line.along};
}

} // namespace

SupportedLine::SupportedLine(const Line &line, const Edges &edges)
{
    float length = 0;
    m_line = clipped(line, edges.weight.size(), length);
    const cv::Point2f across(-m_line.along.y, m_line.along.x);
    const Direction normal = directionOf(across);
    m_sums.reserve(size_t(length) + 2);
    m_sums.push_back(0);
    m_sumsNearby = m_sums;
    for (float distance = 0; distance <= length; ++distance) {
        const NearEdge edge = edgeNear(edges, at(distance), across, normal);
        m_sums.push_back(m_sums.back() + float(edge.weight) / 255);
        m_sumsNearby.push_back(m_sumsNearby.back() + float(edge.weightNearby) / 255);
    }
}

float SupportedLine::share(const std::vector<float> &sums, float from, float to) const
{
    const float first = std::clamp(from, 0.0F, length());
    const float last = std::clamp(to, 0.0F, length());
    if (last - first < 1) {
        return 0;
    }
    return (sums[size_t(last)] - sums[size_t(first)]) / (to - from);
}

bool SupportedLine::crossesPicture() const
{
    constexpr float end = 5; // pixels
    return support(0, length()) > 0.6F && support(0, end) > 0.5F
        && support(length() - end, length()) > 0.5F;
}

float SupportedLine::crossing(const SupportedLine &other) const
{
    const cv::Point2f &a = m_line.along;
    const cv::Point2f &b = other.m_line.along;
    const float sine = a.x * b.y - a.y * b.x;
    if (std::abs(sine) < 0.3F) {
        return std::numeric_limits<float>::quiet_NaN();
    }
    const cv::Point2f offset = other.m_line.point - m_line.point;
    return (offset.x * b.y - offset.y * b.x) / sine;
}

std::vector<SupportedLine> findLines(const Edges &edges, size_t count)
{
    std::vector<Segment> segments = SegmentGrower(edges).all();
    std::sort(segments.begin(), segments.end(),
              [](const Segment &a, const Segment &b) { return a.length() > b.length(); });
    segments.resize(std::min(segments.size(), maxSegments));
    std::vector<bool> isUsed(segments.size(), false);
    std::vector<Candidate> candidates;
    for (size_t i = 0; i < segments.size(); ++i) {
        if (!isUsed[i] && candidates.size() < 3 * count) {
            candidates.push_back(extended(i, segments, isUsed));
        }
    }
    std::sort(candidates.begin(), candidates.end(),
              [](const Candidate &a, const Candidate &b) { return a.rank() > b.rank(); });
    std::vector<SupportedLine> lines;
    std::vector<SupportedLine> crossing;
    for (const Candidate &candidate : candidates) {
        if (lines.size() == count || candidate.length < leastLine) {
            continue;
        }
        SupportedLine line(candidate.line, edges);
        (line.crossesPicture() ? crossing : lines).push_back(std::move(line));
    }
    const auto room = std::ptrdiff_t(std::min(count - lines.size(), crossing.size()));
    lines.insert(lines.end(), crossing.begin(), crossing.begin() + room);
    return lines;
}

} // namespace portable::pagesearch
