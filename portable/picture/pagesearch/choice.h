// SPDX-License-Identifier: MIT
#pragma once

#include "portable/picture/pagesearch/quads.h"

#include <array>
#include <optional>
#include <vector>

namespace portable::pagesearch {

/// What speaks for a quad being a page, from its edges and from the colors at its sides.
struct Evidence
{
    std::array<float, 4> sides{}; ///< 0 to 1 each
    float all = 0; ///< of the four together, less what speaks against a page
};

/// Looks only at as many sides as show that a quad is none; the evidence is the most it can be
/// then.
Evidence evidenceFor(const Edges &edges, const Quad &quad);

/**
 * The corners of the page in the picture: of the outermost of the quads that are almost as certain
 * as the most certain one, for what is printed on a page has frames and tables. Quads with soft
 * sides are passed over: they are shadows or light.
 * \param picture  8-bit BGR, the one in which the edges were found
 * \return nullopt when none is certain enough
 */
std::optional<Corners> choosePage(const cv::Mat &picture, const Edges &edges,
                                  const std::vector<Quad> &quads);

} // namespace portable::pagesearch
