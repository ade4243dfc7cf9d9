// SPDX-License-Identifier: MIT
#include "portable/picture/pagesearch/choice.h"

#include "portable/picture/pagesearch/sides.h"
#include "portable/picture/parallel.h"

#include <algorithm>
#include <cmath>

namespace portable::pagesearch {

namespace {

constexpr float certain = 0.6F; // the least evidence for a page
constexpr float almostCertain = 0.45F; // the least for one around what is certain
constexpr float certainSide = 0.5F; // for three of its sides
constexpr float leastSide = 0.32F; // for the fourth, of which a hand may cover much
constexpr float almostAsCertain = 0.3F; // the most that a page's outline may have less than a frame
constexpr float edgeAlone = 0.25F; // of a side's evidence: its edge, whatever the colors are
constexpr float againstDisagreement = 0.3F;
constexpr float againstSkew = 0.25F;
constexpr float againstNarrowness = 0.3F; // of boards and rulers
constexpr int samples = 24; // along a side
constexpr float minSharpness = 0.45F; // of a page's sides; the light of a lamp or window is softer
constexpr int maxLooks = 10; // at candidates in the picture itself, which takes longer

/// From 0 at `least` to 1 at `most`.
float ramp(float value, float least, float most)
{
    return std::clamp((value - least) / (most - least), 0.0F, 1.0F);
}

cv::Vec3f colorAt(const Edges &edges, const cv::Point2f &place)
{
    const cv::Mat &plane = edges.colors[0];
    const cv::Point pixel(std::clamp(cvRound(place.x), 0, plane.cols - 1),
                          std::clamp(cvRound(place.y), 0, plane.rows - 1));
    return {plane.at<float>(pixel), edges.colors[1].at<float>(pixel),
            edges.colors[2].at<float>(pixel)};
}

/// How the colors differ on both sides of a side.
struct Look
{
    float consistency = 0; ///< 1 when the difference is the same wherever the side has an edge
    float sharpness = 0; ///< the share of the difference that is within two pixels
    cv::Vec3f difference; ///< of the colors, inside less outside
    float step = 0; ///< 1 when it is the largest difference nearby; near 0 for a printed line
};

constexpr std::array<float, 7> offsets{-6, -3, -1.5F, 0, 1.5F, 3, 6}; // pixels, inwards

Look lookAt(const Edges &edges, const cv::Point2f &from, const cv::Point2f &to)
{
    const cv::Point2f side = to - from;
    const cv::Point2f inwards = cv::Point2f(-side.y, side.x) / std::max(cv::norm(side), 1e-3);
    const EdgesAcross across(edges, inwards);
    std::array<cv::Vec3f, offsets.size()> sums{};
    float sizes = 0;
    for (int i = 0; i < samples; ++i) {
        const cv::Point2f place = from + side * (0.06F + 0.88F * (float(i) + 0.5F) / samples);
        const float weight = float(across.near(place).weight) / 255;
        if (weight == 0) {
            continue; // It would add nothing.
        }
        std::array<cv::Vec3f, offsets.size()> here;
        for (size_t k = 0; k < offsets.size(); ++k) {
            here[k] = weight * colorAt(edges, place + inwards * offsets[k]);
            sums[k] += here[k];
        }
        sizes += float(cv::norm(here[5] - here[1]));
    }
    constexpr float nothing = 1e-3F * samples;
    const auto wide = float(cv::norm(sums[6] - sums[0]));
    const auto middle = float(cv::norm(sums[5] - sums[1]));
    const auto close = float(cv::norm(sums[4] - sums[2]));
    float most = middle + nothing;
    for (size_t k = 2; k < 5; ++k) {
        most = std::max(most, float(cv::norm(sums[k] - sums[1])));
    }
    return {middle / (sizes + nothing), close / (wide + nothing),
            (sums[5] - sums[1]) / float(samples), middle / most};
}

bool isWellInside(const cv::Point2f &point, const Corners &outline)
{
    constexpr double margin = 3; // pixels
    for (size_t i = 0; i < 4; ++i) {
        const cv::Point2f side = outline[(i + 1) % 4] - outline[i];
        const cv::Point2f offset = point - outline[i];
        const double distance = (double(side.x) * offset.y - double(side.y) * offset.x)
            / std::max(cv::norm(side), 1e-3);
        if (distance < margin) {
            return false;
        }
    }
    return true;
}

/**
 * True for a frame around another, without a common side: what has three sides of a page in common
 * with it and goes on for a while isn't its outline.
 */
bool surrounds(const Quad &outer, const Quad &inner)
{
    return std::all_of(inner.corners.begin(), inner.corners.end(), [&](const cv::Point2f &corner) {
        return isWellInside(corner, outer.corners);
    });
}

/**
 * 0 when a page differs from what is around it in the same way at all sides, 1 when in opposite
 * ways, like a board between other boards.
 */
float disagreement(const std::array<cv::Vec3f, 4> &differences)
{
    cv::Vec3f mean(0, 0, 0);
    float sizes = 1e-3F;
    for (const cv::Vec3f &difference : differences) {
        mean += difference / 4;
        sizes += float(cv::norm(difference));
    }
    float spread = 0;
    for (const cv::Vec3f &difference : differences) {
        spread += float(cv::norm(difference - mean));
    }
    // Where the desk is as bright as the page, the differences are those of shadows.
    return ramp(spread / sizes, 0.4F, 1) * ramp(sizes / 4, 0.02F, 0.06F);
}

/// The breadth of a quad, of its length.
float breadthOf(const Corners &corners)
{
    std::array<double, 4> sides{};
    for (size_t i = 0; i < 4; ++i) {
        sides[i] = cv::norm(corners[(i + 1) % 4] - corners[i]);
    }
    const auto [shortest, longest] = std::minmax_element(sides.begin(), sides.end());
    return float(*shortest / std::max(*longest, 1e-3));
}

} // namespace

Evidence evidenceFor(const Edges &edges, const Quad &quad)
{
    Evidence evidence;
    const float skewed = againstSkew * ramp(quad.skew, 0.04F, 0.16F);
    const float narrow = againstNarrowness * (1 - ramp(breadthOf(quad.corners), 0.1F, 0.3F));
    float most = -skewed - narrow; // the evidence if all that isn't known yet were perfect
    float beyond = 0;
    for (size_t i = 0; i < 4; ++i) {
        most += (quad.support[i] - quad.beyond[i]) / 4;
        beyond += quad.beyond[i] / 4;
    }
    std::array<cv::Vec3f, 4> differences;
    for (size_t i = 0; i < 4; ++i) {
        const Look look = lookAt(edges, quad.corners[i], quad.corners[(i + 1) % 4]);
        const float difference = ramp(look.consistency, 0.5F, 0.9F)
            * ramp(look.sharpness, 0.2F, 0.45F) * (0.75F + 0.25F * look.step);
        evidence.sides[i] = quad.support[i] * (edgeAlone + (1 - edgeAlone) * difference);
        evidence.all += evidence.sides[i] / 4;
        differences[i] = look.difference;
        most -= (quad.support[i] - evidence.sides[i]) / 4;
        if (most < almostCertain - 0.01F) {
            evidence.all = most;
            return evidence;
        }
    }
    evidence.all -= beyond + againstDisagreement * disagreement(differences) + skewed + narrow;
    return evidence;
}

namespace {

struct Candidate
{
    const Quad *quad;
    float certainty;
    bool isCertain;
    std::optional<Outline> outline; ///< when it has been looked at in the picture
};

/// Corners in a picture reduced by a factor, in the picture itself.
Corners enlarged(Corners corners, int factor)
{
    const auto scale = float(factor);
    for (cv::Point2f &corner : corners) {
        corner = {(corner.x + 0.5F) * scale - 0.5F, (corner.y + 0.5F) * scale - 0.5F};
    }
    return corners;
}

/// The quads that may be pages, the most certain first.
class Candidates
{
public:
    Candidates(const cv::Mat &picture, const Edges &edges, const std::vector<Quad> &quads)
        : m_picture(picture)
        , m_reduction(edges.reduction)
    {
        std::vector<Evidence> evidences(quads.size());
        inParallel({0, int(quads.size())},
                   [&](int i) { evidences[size_t(i)] = evidenceFor(edges, quads[size_t(i)]); });
        for (size_t i = 0; i < quads.size(); ++i) {
            Evidence &evidence = evidences[i];
            std::sort(evidence.sides.begin(), evidence.sides.end());
            if (evidence.all >= almostCertain) {
                const bool isCertain = evidence.all >= certain && evidence.sides[0] >= leastSide
                    && evidence.sides[1] >= certainSide;
                m_candidates.push_back({&quads[i], evidence.all, isCertain, {}});
            }
        }
        std::sort(m_candidates.begin(), m_candidates.end(),
                  [](const Candidate &a, const Candidate &b) { return a.certainty > b.certainty; });
    }

    /// The most certain one; when it is a shadow, the most certain of those that may cast it.
    Candidate *mostCertain()
    {
        const Candidate *shadow = nullptr;
        for (Candidate &candidate : m_candidates) {
            if (!candidate.isCertain
                || (shadow != nullptr && !surrounds(*shadow->quad, *candidate.quad))) {
                continue;
            }
            if (isSharp(candidate)) {
                return &candidate;
            }
            shadow = &candidate;
        }
        return nullptr;
    }

    /// The first one that fulfills a condition and has sharp sides; nullptr when there is none.
    template <class Condition> Candidate *first(Condition condition)
    {
        const auto found =
            std::find_if(m_candidates.begin(), m_candidates.end(),
                         [&](Candidate &each) { return condition(each) && isSharp(each); });
        return found == m_candidates.end() ? nullptr : &*found;
    }

private:
    bool isSharp(Candidate &candidate)
    {
        if (!candidate.outline) {
            if (m_looks == maxLooks) {
                return false;
            }
            ++m_looks;
            candidate.outline =
                refined(m_picture, enlarged(candidate.quad->corners, m_reduction), m_reduction);
        }
        return candidate.outline->sharpness >= minSharpness;
    }

    const cv::Mat &m_picture;
    int m_reduction;
    std::vector<Candidate> m_candidates;
    int m_looks = 0;
};

} // namespace

std::optional<Corners> choosePage(const cv::Mat &picture, const Edges &edges,
                                  const std::vector<Quad> &quads)
{
    Candidates candidates(picture, edges, quads);
    Candidate *page = candidates.mostCertain();
    for (Candidate *outer = page; outer != nullptr;) {
        page = outer;
        outer = candidates.first([page](const Candidate &each) {
            return each.certainty > page->certainty - almostAsCertain
                && surrounds(*each.quad, *page->quad);
        });
    }
    return page == nullptr ? std::nullopt : std::optional<Corners>(page->outline->corners);
}

} // namespace portable::pagesearch
