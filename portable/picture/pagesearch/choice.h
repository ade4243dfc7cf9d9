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

Evidence evidenceFor(const Edges &edges, const Quad &quad);

/**
 * The quad that is the page: the outermost of those that are almost as certain as the most certain
 * one, for what is printed on a page has frames and tables.
 * \return nullopt when none is certain enough
 */
std::optional<Quad> choosePage(const Edges &edges, const std::vector<Quad> &quads);

} // namespace portable::pagesearch
