// SPDX-License-Identifier: MIT
#pragma once

#include "portable/picture/pagesearch/edges.h"

#include <opencv2/core.hpp>

#include <algorithm>
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
    SupportedLine() = default; ///< to be assigned to
    SupportedLine(const Line &line, const Edges &edges);

    const cv::Point2f &along() const { return m_line.along; }

    /// The point at a distance from the begin, in pixels.
    cv::Point2f at(float distance) const { return m_line.point + m_line.along * distance; }

    float length() const { return m_length; }

    /// A place on the line, kept where the support between it and many others is needed.
    struct Place
    {
        float distance; ///< from the begin
        float inside; ///< the same, or that of the nearer end when it is outside the picture
        float sum; ///< of the edges up to there
    };

    Place placeAt(float distance) const { return placeIn(m_sums, distance); }

    /**
     * The share of the line between two of its places that has an edge, 0 to 1; 0 outside the
     * picture.
     */
    static float supportBetween(const Place &from, const Place &to)
    {
        return to.inside - from.inside < 1 ? 0
                                           : (to.sum - from.sum) / (to.distance - from.distance);
    }

    float support(float from, float to) const { return supportBetween(placeAt(from), placeAt(to)); }

    /// The same for edges up to two pixels off, like those on the other side of a groove.
    float supportNearby(float from, float to) const
    {
        return supportBetween(placeIn(m_sumsNearby, from), placeIn(m_sumsNearby, to));
    }

    /// True for an edge from one border to another: of the desk, of its pattern, of a shadow.
    bool crossesPicture() const;

    /// The distance at which another line crosses; NaN when they are almost parallel.
    float crossing(const SupportedLine &other) const;

private:
    Place placeIn(const std::vector<float> &sums, float distance) const
    {
        const float inside = std::clamp(distance, 0.0F, length());
        return {distance, inside, sums[size_t(inside)]};
    }

    Line m_line; // its point is the begin
    float m_length = 0; // of the sums, in whole pixels
    std::vector<float> m_sums; // of the weights up to each pixel
    std::vector<float> m_sumsNearby;
};

/// The longest straight edges, at most `count`; those that cross the picture only if there is room.
std::vector<SupportedLine> findLines(const Edges &edges, size_t count);

} // namespace portable::pagesearch
