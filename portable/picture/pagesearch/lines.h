// SPDX-License-Identifier: MIT
#pragma once

#include "portable/picture/pagesearch/edges.h"

#include <opencv2/core.hpp>

#include <vector>

namespace portable::pagesearch {

/// A line through `point`; `along` is of length 1.
struct Line
{
    cv::Point2f point;
    cv::Point2f along;
};

/// The sum of the edges along a line, from where it enters the picture to where it leaves it.
class SupportedLine
{
public:
    SupportedLine(const Line &line, const Edges &edges);

    const cv::Point2f &along() const { return m_line.along; }

    /// The point at a distance from the begin, in pixels.
    cv::Point2f at(float distance) const { return m_line.point + m_line.along * distance; }

    float length() const { return float(m_sums.size()) - 1; }

    /// The share of the line between two distances that has an edge, 0 to 1; 0 outside the picture.
    float support(float from, float to) const { return share(m_sums, from, to); }

    /// The same for edges up to two pixels off, like those on the other side of a groove.
    float supportNearby(float from, float to) const { return share(m_sumsNearby, from, to); }

    /// True for an edge from one border to another: of the desk, of its pattern, of a shadow.
    bool crossesPicture() const;

    /// The distance at which another line crosses; NaN when they are almost parallel.
    float crossing(const SupportedLine &other) const;

private:
    float share(const std::vector<float> &sums, float from, float to) const;

    Line m_line; // its point is the begin
    std::vector<float> m_sums; // of the weights up to each pixel
    std::vector<float> m_sumsNearby;
};

/// The longest straight edges, at most `count`; those that cross the picture only if there is room.
std::vector<SupportedLine> findLines(const Edges &edges, size_t count);

} // namespace portable::pagesearch
