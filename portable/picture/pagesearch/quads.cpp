// SPDX-License-Identifier: MIT
#include "portable/picture/pagesearch/quads.h"

#include "portable/picture/pagesearch/perspective.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace portable::pagesearch {

namespace {

constexpr double minPage = 0.01; // of the picture's area
constexpr float minBreadth = 0.1F; // of its length; anything narrower is a pen or a ruler
constexpr float minSupport = 0.3F; // of a side; fingers hide some of it
constexpr double maxCosine = 0.55; // of a corner's angle: a page seen from aside
constexpr float maxSkew = 0.18F; // bent paper has some
constexpr float parallel = 0.8F; // the least cosine between opposite sides
constexpr size_t maxOthers = 40; // crossing a pair of lines
constexpr int maxConsidered = 20000; // quads, so that a grid doesn't take long
constexpr size_t maxCompared = 2000; // of them: most quads have many that are almost the same
constexpr float nearCorner = 4; // pixels that say nothing: rounded corners, shadows

/// Where two lines cross, as distances on each of them.
struct Crossings
{
    explicit Crossings(const std::vector<SupportedLine> &lines)
        : count(lines.size())
        , distances(count * count)
    {
        for (size_t i = 0; i < count; ++i) {
            for (size_t j = 0; j < count; ++j) {
                distances[i * count + j] = lines[i].crossing(lines[j]);
            }
        }
    }

    /// The distance on `line` at which `other` crosses it.
    float on(size_t line, size_t other) const { return distances[line * count + other]; }

    size_t count;
    std::vector<float> distances;
};

/// Part of a line, between two others.
struct Side
{
    float from;
    float to;
    float support;
};

/// As in Quad::skew.
float skewOf(const Corners &corners, const cv::Size &picture)
{
    const SeenSides sides(corners, picture);
    double least = 1;
    for (const double focal : {0.7, 1.0, 1.6}) { // of the picture's longer side
        const double length = focal * std::max(picture.width, picture.height);
        least = std::min(least, std::abs(sides.cosine(length * length)));
    }
    return float(least);
}

void makeClockwise(Quad &quad)
{
    const cv::Point2f in = quad.corners[1] - quad.corners[0];
    const cv::Point2f out = quad.corners[2] - quad.corners[1];
    if (in.x * out.y - in.y * out.x < 0) {
        std::swap(quad.corners[1], quad.corners[3]);
        std::reverse(quad.support.begin(), quad.support.end());
        std::reverse(quad.beyond.begin(), quad.beyond.end());
    }
}

class QuadSearch
{
public:
    QuadSearch(const Edges &edges, const std::vector<SupportedLine> &lines)
        : m_size(edges.weight.size())
        , m_lines(lines)
        , m_crossings(lines)
    {
    }

    std::vector<Quad> all()
    {
        for (size_t i = 0; i < m_lines.size(); ++i) {
            for (size_t j = i + 1; j < m_lines.size(); ++j) {
                if (areOpposite(i, j)) {
                    searchBetween(i, j);
                }
            }
        }
        return std::move(m_quads);
    }

private:
    bool areOpposite(size_t a, size_t b) const
    {
        return std::abs(m_lines[a].along().dot(m_lines[b].along())) > parallel;
    }

    Side side(size_t line, size_t first, size_t second) const
    {
        const float a = m_crossings.on(line, first);
        const float b = m_crossings.on(line, second);
        const float from = std::min(a, b);
        const float to = std::max(a, b);
        return {from, to, m_lines[line].support(from, to)};
    }

    bool isWithin(size_t line, const Side &side) const
    {
        constexpr float margin = 3;
        return side.from > -margin && side.to < m_lines[line].length() + margin;
    }

    /// All quads of which these two are opposite sides.
    void searchBetween(size_t top, size_t bottom)
    {
        m_others.clear();
        for (size_t i = 0; i < m_lines.size(); ++i) {
            if (std::isnan(m_crossings.on(i, top)) || std::isnan(m_crossings.on(i, bottom))) {
                continue;
            }
            const Side across = side(i, top, bottom);
            if (across.support >= minSupport && isWithin(i, across)
                && !goesOn(m_lines[i], across)) {
                m_others.push_back({i, across});
            }
        }
        if (m_others.size() > maxOthers) {
            std::partial_sort(
                m_others.begin(), m_others.begin() + maxOthers, m_others.end(),
                [](const Other &a, const Other &b) { return a.across.support > b.across.support; });
            m_others.resize(maxOthers);
        }
        for (size_t a = 0; a < m_others.size() && m_considered < maxConsidered; ++a) {
            for (size_t b = a + 1; b < m_others.size(); ++b) {
                // Each quad is met twice, once by each pair of its opposite sides.
                if (top < m_others[a].line && areOpposite(m_others[a].line, m_others[b].line)) {
                    consider({top, m_others[b].line, bottom, m_others[a].line}, m_others[b].across,
                             m_others[a].across);
                }
            }
        }
    }

    void consider(const std::array<size_t, 4> &ring, const Side &right, const Side &left)
    {
        const Side top = side(ring[0], ring[3], ring[1]);
        const Side bottom = side(ring[2], ring[3], ring[1]);
        if (top.support < minSupport || bottom.support < minSupport || !isWithin(ring[0], top)
            || !isWithin(ring[2], bottom)) {
            return;
        }
        ++m_considered;
        Quad quad;
        const std::array<Side, 4> sides{top, right, bottom, left};
        float lengths = 0;
        float supported = 0;
        float least = 1;
        float beyond = 0;
        for (size_t i = 0; i < 4; ++i) {
            const Side &side = sides[i];
            const SupportedLine &line = m_lines[ring[i]];
            quad.corners[i] = line.at(m_crossings.on(ring[i], ring[(i + 3) % 4]));
            quad.support[i] = side.support;
            quad.beyond[i] = beyondOf(line, side);
            lengths += side.to - side.from;
            supported += side.support * (side.to - side.from);
            least = std::min(least, side.support);
            beyond += quad.beyond[i] / 4;
        }
        if (!isPageShaped(quad.corners)) {
            return;
        }
        makeClockwise(quad);
        quad.skew = skewOf(quad.corners, m_size);
        if (quad.skew > maxSkew) {
            return;
        }
        quad.score = supported / lengths + 0.5F * least - beyond
            + 0.12 * std::log(areaOf(quad.corners) / m_size.area());
        m_quads.push_back(quad);
    }

    /// The support of the line before and after the side.
    static std::pair<float, float> supportBeyond(const SupportedLine &line, const Side &side)
    {
        const float reach = std::clamp(0.3F * (side.to - side.from), 20.0F, 50.0F);
        return {line.supportNearby(side.from - nearCorner - reach, side.from - nearCorner),
                line.supportNearby(side.to + nearCorner, side.to + nearCorner + reach)};
    }

    /// A page's sides end at its corners; those of tiles and boards often go on.
    static float beyondOf(const SupportedLine &line, const Side &side)
    {
        constexpr float least = 2 * nearCorner; // pixels that say something
        const auto [before, after] = supportBeyond(line, side);
        if (side.from < least) {
            return after;
        }
        return side.to > line.length() - least ? before : (before + after) / 2;
    }

    static bool goesOn(const SupportedLine &line, const Side &side)
    {
        const auto [before, after] = supportBeyond(line, side);
        return std::min(before, after) > 0.6F;
    }

    bool isPageShaped(const Corners &corners) const
    {
        double shortest = std::numeric_limits<double>::max();
        double longest = 0;
        double turns = 0;
        for (size_t i = 0; i < 4; ++i) {
            const cv::Point2f in = corners[(i + 1) % 4] - corners[i];
            const cv::Point2f out = corners[(i + 2) % 4] - corners[(i + 1) % 4];
            const double length = cv::norm(in);
            const double turn = in.x * out.y - in.y * out.x;
            if (turn * turns < 0 || cosineAt(in, out) > maxCosine) {
                return false;
            }
            turns += turn;
            shortest = std::min(shortest, length);
            longest = std::max(longest, length);
        }
        return shortest >= double(minBreadth) * longest
            && areaOf(corners) >= minPage * m_size.area();
    }

    static double cosineAt(const cv::Point2f &in, const cv::Point2f &out)
    {
        return std::abs(in.dot(out)) / std::max(cv::norm(in) * cv::norm(out), 1e-3);
    }

    struct Other
    {
        size_t line;
        Side across;
    };

    cv::Size m_size;
    const std::vector<SupportedLine> &m_lines;
    Crossings m_crossings;
    std::vector<Other> m_others;
    std::vector<Quad> m_quads;
    int m_considered = 0;
};

bool areSame(const Corners &a, const Corners &b)
{
    for (size_t shift = 0; shift < 4; ++shift) {
        double farthest = 0;
        for (size_t i = 0; i < 4; ++i) {
            farthest = std::max(farthest, cv::norm(a[i] - b[(i + shift) % 4]));
        }
        if (farthest < 3) {
            return true;
        }
    }
    return false;
}

} // namespace

double areaOf(const Corners &corners)
{
    const cv::Point2f a = corners[2] - corners[0];
    const cv::Point2f b = corners[3] - corners[1];
    return std::abs(double(a.x) * b.y - double(a.y) * b.x) / 2;
}

std::vector<Quad> findQuads(const Edges &edges, const std::vector<SupportedLine> &lines,
                            size_t count)
{
    std::vector<Quad> all = QuadSearch(edges, lines).all();
    const auto end = all.begin() + std::ptrdiff_t(std::min(all.size(), maxCompared));
    std::partial_sort(all.begin(), end, all.end(),
                      [](const Quad &a, const Quad &b) { return a.score > b.score; });
    all.erase(end, all.end());
    std::vector<Quad> best;
    for (const Quad &quad : all) {
        const bool isNew = std::none_of(best.begin(), best.end(), [&](const Quad &other) {
            return areSame(quad.corners, other.corners);
        });
        if (isNew) {
            best.push_back(quad);
            if (best.size() == count) {
                break;
            }
        }
    }
    return best;
}

} // namespace portable::pagesearch
