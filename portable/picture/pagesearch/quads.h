// SPDX-License-Identifier: MIT
#pragma once

#include "portable/picture/pagesearch/edges.h"
#include "portable/picture/pagesearch/lines.h"

#include <array>
#include <vector>

namespace portable::pagesearch {

/// Four corners, clockwise.
using Corners = std::array<cv::Point2f, 4>;

/// Half the product of the diagonals and the sine between them.
double areaOf(const Corners &corners);

/// Four sides that may be those of a page, and what speaks for it.
struct Quad
{
    Corners corners; ///< in the reduced picture
    std::array<float, 4> support{}; ///< of each side, from a corner to the next: 0 to 1
    std::array<float, 4> beyond{}; ///< of the lines beyond the corners of each side
    float skew = 0; ///< the cosine of its angles in space, for the usual lens that makes it least
    double score = 0; ///< orders quads; the choice of a page takes more into account
};

/// The quadrilaterals that the lines form, best first; at most `count`.
std::vector<Quad> findQuads(const Edges &edges, const std::vector<SupportedLine> &lines,
                            size_t count);

} // namespace portable::pagesearch
