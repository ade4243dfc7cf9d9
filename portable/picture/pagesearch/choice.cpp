// SPDX-License-Identifier: MIT
#include "portable/picture/pagesearch/choice.h"

#include <algorithm>
#include <cmath>

namespace portable::pagesearch {

namespace {

constexpr float certain = 0.6F; // the least evidence for a page
constexpr float certainSide = 0.5F; // for three of its sides; a hand may cover much of the fourth
constexpr float almostAsCertain = 0.3F; // the most that a page's outline may have less than a frame
constexpr float edgeAlone = 0.25F; // of a side's evidence: its edge, whatever the colors are
constexpr float againstDisagreement = 0.3F;
constexpr int samples = 24; // along a side

/// From 0 at `least` to 1 at `most`.
float ramp(float value, float least, float most)
{
    return std::clamp((value - least) / (most - least), 0.0F, 1.0F);
}

cv::Vec3f colorAt(const cv::Mat &colors, const cv::Point2f &place)
{
    return colors.at<cv::Vec3f>(std::clamp(cvRound(place.y), 0, colors.rows - 1),
                                std::clamp(cvRound(place.x), 0, colors.cols - 1));
}

/// How the colors differ on both sides of a side.
struct Look
{
    float consistency = 0; ///< 1 when the difference is the same everywhere along the side
    float sharpness = 0; ///< the share of the difference that is within two pixels
    cv::Vec3f difference; ///< of the colors, inside less outside
    float step = 0; ///< 1 when it is the largest difference nearby; near 0 for a printed line
};

constexpr std::array<float, 7> offsets{-6, -3, -1.5F, 0, 1.5F, 3, 6}; // pixels, inwards

Look lookAt(const cv::Mat &colors, const cv::Point2f &from, const cv::Point2f &to)
{
    const cv::Point2f side = to - from;
    const cv::Point2f inwards = cv::Point2f(-side.y, side.x) / std::max(cv::norm(side), 1e-3);
    std::array<cv::Vec3f, offsets.size()> sums{};
    float sizes = 0;
    for (int i = 0; i < samples; ++i) {
        const cv::Point2f place = from + side * (0.06F + 0.88F * (float(i) + 0.5F) / samples);
        std::array<cv::Vec3f, offsets.size()> here;
        for (size_t k = 0; k < offsets.size(); ++k) {
            here[k] = colorAt(colors, place + inwards * offsets[k]);
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

struct Candidate
{
    const Quad *quad;
    float certainty;
};

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
    return ramp(spread / sizes, 0.4F, 1);
}

} // namespace

Evidence evidenceFor(const Edges &edges, const Quad &quad)
{
    Evidence evidence;
    float beyond = 0;
    std::array<cv::Vec3f, 4> differences;
    for (size_t i = 0; i < 4; ++i) {
        const Look look = lookAt(edges.colors, quad.corners[i], quad.corners[(i + 1) % 4]);
        const float difference = ramp(look.consistency, 0.5F, 0.9F)
            * ramp(look.sharpness, 0.2F, 0.45F) * (0.75F + 0.25F * look.step);
        evidence.sides[i] = quad.support[i] * (edgeAlone + (1 - edgeAlone) * difference);
        evidence.all += evidence.sides[i] / 4;
        beyond += quad.beyond[i] / 4;
        differences[i] = look.difference;
    }
    evidence.all -= beyond + againstDisagreement * disagreement(differences);
    return evidence;
}

std::optional<Quad> choosePage(const Edges &edges, const std::vector<Quad> &quads)
{
    std::vector<Candidate> candidates;
    const Candidate *best = nullptr;
    for (const Quad &quad : quads) {
        Evidence evidence = evidenceFor(edges, quad);
        std::sort(evidence.sides.begin(), evidence.sides.end());
        if (evidence.all >= certain && evidence.sides[1] >= certainSide) {
            candidates.push_back({&quad, evidence.all});
        }
    }
    for (const Candidate &candidate : candidates) {
        if (best == nullptr || candidate.certainty > best->certainty) {
            best = &candidate;
        }
    }
    for (bool isOutermost = best == nullptr; !isOutermost;) {
        isOutermost = true;
        for (const Candidate &candidate : candidates) {
            if (candidate.certainty > best->certainty - almostAsCertain
                && surrounds(*candidate.quad, *best->quad)) {
                best = &candidate;
                isOutermost = false;
            }
        }
    }
    return best == nullptr ? std::nullopt : std::optional<Quad>(*best->quad);
}

} // namespace portable::pagesearch
