// SPDX-License-Identifier: MIT
#include "portable/picture/pagefinder.h"

#include "portable/picture/pagesearch/choice.h"
#include "portable/picture/pagesearch/edges.h"
#include "portable/picture/pagesearch/features.h"
#include "portable/picture/pagesearch/lines.h"
#include "portable/picture/pagesearch/quads.h"

#include <algorithm>

namespace portable {

namespace {

constexpr int minSide = 48; // pixels of the reduced picture
constexpr size_t maxLines = 90; // text and patterned desks have many
constexpr size_t maxQuads = 150;

/// Begins with the corner nearest to the top left of the picture.
PageCorners ordered(PageCorners corners)
{
    const auto first = std::min_element(
        corners.begin(), corners.end(),
        [](const cv::Point2f &a, const cv::Point2f &b) { return a.x + a.y < b.x + b.y; });
    std::rotate(corners.begin(), first, corners.end());
    return corners;
}

} // namespace

std::optional<PageCorners> findPage(const cv::Mat &picture)
{
    using namespace pagesearch;
    if (std::min(picture.cols, picture.rows) < minSide * reductionOf(picture.size())) {
        return {};
    }
    const Edges edges = findEdges(picture);
    const auto page =
        choosePage(picture, edges, findQuads(edges, findLines(edges, maxLines), maxQuads));
    return page ? std::optional<PageCorners>(ordered(*page)) : std::nullopt;
}

} // namespace portable
