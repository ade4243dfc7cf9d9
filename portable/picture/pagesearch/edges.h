// SPDX-License-Identifier: MIT
#pragma once

#include <opencv2/core.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace portable::pagesearch {

/**
 * Directions of lines modulo 180 degrees, in 256ths of that: differences wrap around like the
 * numbers do.
 */
using Direction = uint8_t;

/// The unsigned angle between two directions, in 256ths of 180 degrees.
inline int turnBetween(Direction a, Direction b)
{
    const int turn = uint8_t(a - b);
    return turn < 128 ? turn : 256 - turn;
}

/// The edges in a reduced picture, one pixel wide; all matrices are of its size, and continuous.
struct Edges
{
    cv::Mat weight; ///< 8-bit: 0 for no edge, up to 255 for one that is clear at its place
    cv::Mat normal; ///< 8-bit: the Direction across the edge; where there is none, of any change
    /// Smoothed, CV_32F: log lightness, red and blue relative to the lightness.
    std::array<cv::Mat, 3> colors;
    int reduction = 1; ///< pixels of the picture to one of these
};

/// The direction of a vector, pointing either way.
Direction directionOf(const cv::Point2f &vector);

/// The largest weights near a place.
struct NearEdge
{
    int weight = 0; ///< up to a pixel off
    int weightNearby = 0; ///< up to two pixels off
};

/// The edges of about a direction.
class EdgesAcross
{
public:
    /// \param across  of length 1: where to look, both ways, and what the normal is like
    EdgesAcross(const Edges &edges, const cv::Point2f &across);

    NearEdge near(const cv::Point2f &place) const
    {
        NearEdge found;
        for (int i = 0; i < int(m_offsets.size()); ++i) {
            const int x = cvRound(place.x + m_offsets[size_t(i)].x);
            const int y = cvRound(place.y + m_offsets[size_t(i)].y);
            const bool isInside =
                unsigned(x) < unsigned(m_width) && unsigned(y) < unsigned(m_height);
            const ptrdiff_t pixel = y * m_stride + x;
            const int weight = isInside ? m_weights[pixel] : 0;
            if (weight == 0 || turnBetween(m_normals[pixel], m_normal) > supporting) {
                continue;
            }
            found.weightNearby = std::max(found.weightNearby, weight);
            if (std::abs(i - reach) <= 1) {
                found.weight = std::max(found.weight, weight);
            }
        }
        return found;
    }

private:
    static constexpr int reach = 2; // pixels, both ways
    static constexpr int supporting = 32; // the most that directions differ, in units of Direction

    // Both are looked at very often.
    const uchar *m_weights;
    const uchar *m_normals;
    ptrdiff_t m_stride;
    int m_width;
    int m_height;
    Direction m_normal;
    std::array<cv::Point2f, 2 * reach + 1> m_offsets;
};

/**
 * Finds edges of lightness and of color. An edge is measured against its own neighborhood:
 * neither the light at its place nor the pattern and the noise of the desk there decide on it.
 * \param picture  8-bit BGR, at least 6 x 3 when reduced
 */
Edges findEdges(const cv::Mat &picture);

} // namespace portable::pagesearch
