// SPDX-License-Identifier: MIT
#include "portable/picture/pagesearch/lines.h"

#include "portable/picture/parallel.h"
#include "portable/picture/vectors.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

namespace portable::pagesearch {

namespace {

// 256ths of 180 degrees. Where a pattern meets a side, the edges of the side sway.
constexpr int sameDirection = 40;
constexpr int similarDirection = 20; // of the parts of a curve
constexpr double maxBend = 0.8; // pixels, the standard deviation from a straight line
constexpr float leastSegment = 8; // pixels
constexpr size_t leastPoints = 7; // of such a segment, along a diagonal
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

/// Part of a line.
struct Stretch
{
    cv::Point2f begin;
    cv::Point2f end;
    float length = 0;
};

/// Adjacent edges of about the same direction.
struct Segment
{
    Moments moments;
    Stretch stretch;
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

bool isInLine(const Stretch &stretch, const Line &line)
{
    const cv::Point2f along = stretch.end - stretch.begin;
    const float turn = line.along.x * along.y - line.along.y * along.x;
    return offsetFrom(line, stretch.begin) <= nearby && offsetFrom(line, stretch.end) <= nearby
        && std::abs(turn) <= inLine * stretch.length;
}

/// The cosine of twice the angle between two directions.
float doubledCosine(int turn)
{
    return float(std::cos(turn * CV_PI / 128));
}

uint64_t threeBytes(const uchar *from)
{
    uint32_t four = 0;
    std::memcpy(&four, from, sizeof four);
    return four & 0xffffff;
}

/// \return the highest bit of each byte that isn't 0
uint64_t bytesAboveZero(uint64_t bytes)
{
    constexpr uint64_t lowBits = 0x7f7f7f7f7f7f7f7f;
    return (((bytes & lowBits) + lowBits) | bytes) & ~lowBits;
}

/// Grows segments from edge pixels; clears the weight of their pixels in `left`.
class SegmentGrower
{
public:
    /// \param rows  where edges are taken from
    SegmentGrower(const Edges &edges, const cv::Range &rows)
        : m_edges(edges)
        , m_rows(rows)
        , m_left(edges.weight.rows + 1, edges.weight.cols, CV_8U, cv::Scalar(0))
    {
        edges.weight.rowRange(rows).copyTo(m_left.rowRange(rows));
    }

    std::vector<Segment> all()
    {
        std::vector<Segment> segments;
        for (int y = m_rows.start; y < m_rows.end; ++y) {
            const uchar *left = m_left.ptr(y);
            for (int x = 1; x + 1 < m_left.cols; ++x) {
                if (left[x] == 0) {
                    // Most pixels have no edge.
                    x += eightBytesAt(left + x) == 0 ? 7 : 0;
                    continue;
                }
                const Segment segment = straight({x, y});
                if (segment.stretch.length >= leastSegment) {
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
        const Segment segment = grown(seed, m_same);
        if (segment.moments.bend() <= maxBend * maxBend) {
            return segment;
        }
        for (const cv::Point &point : m_points) {
            m_left.at<uchar>(point) = m_edges.weight.at<uchar>(point);
        }
        return grown(seed, m_similar);
    }

    /// \param leastCosine  as doubledCosine() of the most that directions may differ
    Segment grown(const cv::Point &seed, float leastCosine)
    {
        m_points.assign(1, seed);
        m_left.at<uchar>(seed) = 0;
        Segment segment;
        cv::Point2f sum; // directions are averaged with their angles doubled
        for (size_t i = 0; i < m_points.size(); ++i) {
            const cv::Point point = m_points[i];
            segment.moments.add(point.x, point.y, m_edges.weight.at<uchar>(point));
            sum += m_doubled[m_edges.normal.at<uchar>(point)];
            const float least = leastCosine * std::sqrt(sum.dot(sum));
            takeNeighbors(point, [&](uchar normal) { return sum.dot(m_doubled[normal]) >= least; });
        }
        if (m_points.size() >= leastPoints) {
            segment.stretch = stretchOn(segment.moments.line());
        }
        return segment;
    }

    /// Takes those of the pixels around one, row by row.
    template <class Condition> void takeNeighbors(const cv::Point &point, Condition isSimilar)
    {
        static constexpr std::array<int, 8> columns{-1, 0, 1, -1, 1, -1, 0, 1};
        static constexpr std::array<int, 8> rows{-1, -1, -1, 0, 0, 1, 1, 1};
        // Edges keep a pixel from the border.
        const uchar *above = m_left.ptr(point.y - 1, point.x - 1);
        const uchar *here = above + m_left.step;
        const uchar *below = here + m_left.step;
        // Which of the eight have an edge is found at once: eight branches would take longer.
        uint64_t edges = threeBytes(above) | uint64_t(here[0]) << 24 | uint64_t(here[2]) << 32
            | threeBytes(below) << 40;
        for (edges = bytesAboveZero(edges); edges != 0; edges &= edges - 1) {
            const auto i = size_t(__builtin_ctzll(edges)) / 8;
            const cv::Point neighbor(point.x + columns[i], point.y + rows[i]);
            if (isSimilar(m_edges.normal.at<uchar>(neighbor))) {
                m_left.at<uchar>(neighbor) = 0;
                m_points.push_back(neighbor);
            }
        }
    }

    Stretch stretchOn(const Line &line) const
    {
        float first = 0;
        float last = 0;
        for (const cv::Point &point : m_points) {
            const float place = placeOn(line, cv::Point2f(point));
            first = std::min(first, place);
            last = std::max(last, place);
        }
        Stretch stretch{line.point + line.along * first, line.point + line.along * last};
        stretch.length = float(cv::norm(stretch.end - stretch.begin));
        return stretch;
    }

    const Edges &m_edges;
    const cv::Range m_rows;
    const std::array<cv::Point2f, 256> m_doubled = doubledDirections();
    const float m_same = doubledCosine(sameDirection);
    const float m_similar = doubledCosine(similarDirection);
    cv::Mat m_left; // with one more row, for what is read beyond a row's end
    std::vector<cv::Point> m_points;
};

/**
 * All segments. Those of both halves of the picture are found at the same time: what crosses the
 * middle becomes two segments, which are in line with each other.
 */
std::vector<Segment> segmentsOf(const Edges &edges)
{
    const int end = edges.weight.rows - 1;
    const std::array<cv::Range, 2> halves{cv::Range(1, end / 2), cv::Range(end / 2, end)};
    std::array<std::vector<Segment>, 2> found;
    inParallel({0, int(halves.size())},
               [&](int i) { found[size_t(i)] = SegmentGrower(edges, halves[size_t(i)]).all(); });
    found[0].insert(found[0].end(), found[1].begin(), found[1].end());
    return std::move(found[0]);
}

/// A line through segments, and how much edge it has.
struct Candidate
{
    Line line;
    float length = 0; ///< of the segments together
    float extent = 0; ///< from the first to the last of them

    /// Long and with few gaps, like the sides of paper and unlike the grain of wood.
    float rank() const { return length * length / std::max(extent, length); }
};

/// Joins segments that are in line with each other.
class SegmentJoiner
{
public:
    explicit SegmentJoiner(const std::vector<Segment> &segments)
        : m_segments(segments)
        , m_isUsed(segments.size())
        , m_isTaken(segments.size())
    {
        for (const Segment &segment : segments) {
            m_stretches.push_back(segment.stretch);
            m_beginX.push_back(segment.stretch.begin.x);
            m_beginY.push_back(segment.stretch.begin.y);
        }
        m_offsets.resize(segments.size());
    }

    /// Extends the segments in their order, except those of earlier candidates; at most `count`.
    std::vector<Candidate> all(size_t count)
    {
        std::vector<Candidate> candidates;
        for (size_t i = 0; i < m_segments.size() && candidates.size() < count; ++i) {
            if (m_isUsed[i] == 0) {
                candidates.push_back(extended(i));
            }
        }
        return candidates;
    }

private:
    /**
     * Extends a segment by others in line with it. The gap may be as long as what is known so far:
     * that is how far its direction can be trusted.
     */
    Candidate extended(size_t seed)
    {
        m_moments = Moments();
        take(seed);
        do {
            measure();
        } while (takeInLine());
        Candidate candidate{m_line, 0, m_last - m_first};
        for (const size_t i : m_taken) {
            candidate.length += m_stretches[i].length;
            m_isTaken[i] = 0;
            m_isUsed[i] = 1;
        }
        m_taken.clear();
        return candidate;
    }

    void take(size_t i)
    {
        m_moments.add(m_segments[i].moments);
        m_taken.push_back(i);
        m_isTaken[i] = 1;
    }

    /// The line through all that is taken, and how far it reaches.
    void measure()
    {
        m_line = m_moments.line();
        m_first = 0;
        m_last = 0;
        for (const size_t i : m_taken) {
            for (const cv::Point2f &end : {m_stretches[i].begin, m_stretches[i].end}) {
                m_first = std::min(m_first, placeOn(m_line, end));
                m_last = std::max(m_last, placeOn(m_line, end));
            }
        }
    }

    /// False when there is nothing more to take.
    bool takeInLine()
    {
        const size_t before = m_taken.size();
        const float reach = std::max(20.0F, m_last - m_first);
        const Line line = m_line;
        for (size_t i = 0; i < m_offsets.size(); ++i) { // in the processor's vectors
            m_offsets[i] = offsetFrom(line, {m_beginX[i], m_beginY[i]});
        }
        for (size_t i = 0; i < m_stretches.size(); ++i) {
            if (m_offsets[i] > nearby || m_isTaken[i] != 0) {
                continue;
            }
            const Stretch &stretch = m_stretches[i];
            if (!isInLine(stretch, line)) {
                continue;
            }
            const float begin = placeOn(line, stretch.begin);
            const float end = placeOn(line, stretch.end);
            if (std::min(begin, end) <= m_last + reach && std::max(begin, end) >= m_first - reach) {
                take(i);
            }
        }
        return m_taken.size() > before;
    }

    const std::vector<Segment> &m_segments;
    // Theirs, close together: all are looked at many times.
    std::vector<Stretch> m_stretches;
    std::vector<float> m_beginX;
    std::vector<float> m_beginY;
    std::vector<uchar> m_isUsed; // by any candidate

    // The candidate that is being extended:
    std::vector<float> m_offsets; // from its line
    std::vector<uchar> m_isTaken;
    std::vector<size_t> m_taken;
    Moments m_moments;
    Line m_line;
    float m_first = 0;
    float m_last = 0;
};

using Candidates = std::vector<Candidate>;

/// The lines of some candidates, with the edges along them.
std::vector<SupportedLine> supported(Candidates::const_iterator first,
                                     Candidates::const_iterator last, const Edges &edges)
{
    std::vector<SupportedLine> lines(size_t(last - first));
    inParallel({0, int(lines.size())},
               [&](int i) { lines[size_t(i)] = SupportedLine(first[i].line, edges); });
    return lines;
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
    const EdgesAcross across(edges, {-m_line.along.y, m_line.along.x});
    m_length = std::floor(length) + 1;
    m_sums.resize(size_t(m_length) + 1);
    m_sumsNearby.resize(m_sums.size());
    for (size_t i = 0; i + 1 < m_sums.size(); ++i) {
        const NearEdge edge = across.near(at(float(i)));
        m_sums[i + 1] = m_sums[i] + float(edge.weight) / 255;
        m_sumsNearby[i + 1] = m_sumsNearby[i] + float(edge.weightNearby) / 255;
    }
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
    std::vector<Segment> segments = segmentsOf(edges);
    std::sort(segments.begin(), segments.end(), [](const Segment &a, const Segment &b) {
        return a.stretch.length > b.stretch.length;
    });
    segments.resize(std::min(segments.size(), maxSegments));
    std::vector<Candidate> candidates = SegmentJoiner(segments).all(3 * count);
    std::sort(candidates.begin(), candidates.end(),
              [](const Candidate &a, const Candidate &b) { return a.rank() > b.rank(); });
    candidates.erase(std::remove_if(candidates.begin(), candidates.end(),
                                    [](const Candidate &each) { return each.length < leastLine; }),
                     candidates.end());

    std::vector<SupportedLine> lines;
    std::vector<SupportedLine> crossing;
    for (auto next = candidates.begin(); next != candidates.end() && lines.size() < count;) {
        // As many as there is room for if none of them cross the picture.
        const auto some = std::min(std::ptrdiff_t(count - lines.size()), candidates.end() - next);
        for (SupportedLine &line : supported(next, next + some, edges)) {
            (line.crossesPicture() ? crossing : lines).push_back(std::move(line));
        }
        next += some;
    }
    const auto room = std::ptrdiff_t(std::min(count - lines.size(), crossing.size()));
    lines.insert(lines.end(), crossing.begin(), crossing.begin() + room);
    return lines;
}

} // namespace portable::pagesearch
