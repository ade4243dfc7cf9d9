// SPDX-License-Identifier: MIT
#include "portable/picture/pagesearch/quads.h"

#include "portable/picture/pagesearch/perspective.h"
#include "portable/picture/parallel.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

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

/// Where each line crosses each other one.
class Crossings
{
public:
    using Place = SupportedLine::Place;

    explicit Crossings(const std::vector<SupportedLine> &lines)
        : m_crossed(lines.size())
        , m_places(lines.size() * lines.size())
    {
        constexpr float margin = 3; // pixels
        for (size_t by = 0; by < lines.size(); ++by) {
            for (size_t i = 0; i < lines.size(); ++i) {
                const float distance = lines[i].crossing(lines[by]);
                if (distance > -margin && distance < lines[i].length() + margin) {
                    m_crossed[by].push_back(i);
                    m_places[by * lines.size() + i] = lines[i].placeAt(distance);
                }
            }
        }
    }

    /// The lines that this one crosses within their length, in ascending order.
    const std::vector<size_t> &crossedBy(size_t line) const { return m_crossed[line]; }

    /// Where a line is crossed by another; nullopt when that isn't within its length.
    const std::optional<Place> &on(size_t line, size_t by) const
    {
        return m_places[by * m_crossed.size() + line];
    }

private:
    std::vector<std::vector<size_t>> m_crossed;
    std::vector<std::optional<Place>> m_places;
};

/// Part of a line, between two others.
struct Side
{
    Side(const SupportedLine::Place &a, const SupportedLine::Place &b)
        : from(std::min(a.distance, b.distance))
        , to(std::max(a.distance, b.distance))
        , support(a.distance < b.distance ? SupportedLine::supportBetween(a, b)
                                          : SupportedLine::supportBetween(b, a))
    {
    }

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

/// The quads with a common side.
class QuadSearch
{
public:
    struct Found
    {
        std::vector<Quad> quads;
        std::vector<int> before; ///< how many were considered before each of them
        int considered = 0;
    };

    QuadSearch(const cv::Size &size, const std::vector<SupportedLine> &lines,
               const Crossings &crossings)
        : m_size(size)
        , m_lines(lines)
        , m_crossings(crossings)
    {
    }

    /// The quads of this side and of opposite ones that come after it.
    Found withSide(size_t line)
    {
        for (size_t other = line + 1; other < m_lines.size(); ++other) {
            if (areOpposite(line, other)) {
                searchBetween(line, other);
            }
        }
        return std::move(m_found);
    }

private:
    bool areOpposite(size_t a, size_t b) const
    {
        return std::abs(m_lines[a].along().dot(m_lines[b].along())) > parallel;
    }

    /// The part of a line between two others; nullopt when they don't both cross it.
    std::optional<Side> side(size_t line, size_t first, size_t second) const
    {
        const auto &a = m_crossings.on(line, first);
        const auto &b = m_crossings.on(line, second);
        if (!a || !b) {
            return {};
        }
        const Side side(*a, *b);
        return side.support >= minSupport ? std::optional<Side>(side) : std::nullopt;
    }

    /// All quads of which these two are opposite sides.
    void searchBetween(size_t top, size_t bottom)
    {
        m_others.clear();
        for (const size_t i : m_crossings.crossedBy(top)) {
            const auto across = side(i, top, bottom);
            if (across && !goesOn(m_lines[i], *across)) {
                m_others.push_back({i, *across});
            }
        }
        if (m_others.size() > maxOthers) {
            std::partial_sort(
                m_others.begin(), m_others.begin() + maxOthers, m_others.end(),
                [](const Other &a, const Other &b) { return a.across.support > b.across.support; });
            m_others.erase(m_others.begin() + maxOthers, m_others.end());
        }
        for (size_t a = 0; a < m_others.size() && m_found.considered < maxConsidered; ++a) {
            m_before = m_found.considered;
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
        const auto top = side(ring[0], ring[3], ring[1]);
        const auto bottom = top ? side(ring[2], ring[3], ring[1]) : std::nullopt;
        if (!bottom) {
            return;
        }
        ++m_found.considered;
        Quad quad;
        for (size_t i = 0; i < 4; ++i) {
            quad.corners[i] =
                m_lines[ring[i]].at(m_crossings.on(ring[i], ring[(i + 3) % 4])->distance);
        }
        if (!isPageShaped(quad.corners)) {
            return;
        }
        const std::array<Side, 4> sides{*top, right, *bottom, left};
        float lengths = 0;
        float supported = 0;
        float least = 1;
        float beyond = 0;
        for (size_t i = 0; i < 4; ++i) {
            const Side &side = sides[i];
            quad.support[i] = side.support;
            quad.beyond[i] = beyondOf(m_lines[ring[i]], side);
            lengths += side.to - side.from;
            supported += side.support * (side.to - side.from);
            least = std::min(least, side.support);
            beyond += quad.beyond[i] / 4;
        }
        makeClockwise(quad);
        quad.skew = skewOf(quad.corners, m_size);
        if (quad.skew > maxSkew) {
            return;
        }
        quad.score = supported / lengths + 0.5F * least - beyond
            + 0.12 * std::log(areaOf(quad.corners) / m_size.area());
        m_found.quads.push_back(quad);
        m_found.before.push_back(m_before);
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
    const Crossings &m_crossings;
    std::vector<Other> m_others;
    Found m_found;
    int m_before = 0;
};

/// All quads; those of the first lines only if there are too many.
std::vector<Quad> quadsOf(const cv::Size &size, const std::vector<SupportedLine> &lines)
{
    const Crossings crossings(lines);
    std::vector<QuadSearch::Found> found(lines.size());
    inParallel({0, int(lines.size())}, [&](int i) {
        found[size_t(i)] = QuadSearch(size, lines, crossings).withSide(size_t(i));
    });
    std::vector<Quad> all;
    int considered = 0;
    for (const QuadSearch::Found &some : found) {
        for (size_t i = 0; i < some.quads.size() && considered + some.before[i] < maxConsidered;
             ++i) {
            all.push_back(some.quads[i]);
        }
        considered += some.considered;
    }
    return all;
}

double squareOf(const cv::Point2f &vector)
{
    return double(vector.x) * vector.x + double(vector.y) * vector.y;
}

bool areSame(const Corners &a, const Corners &b)
{
    constexpr double far = 3; // pixels
    for (size_t shift = 0; shift < 4; ++shift) {
        size_t i = 0;
        while (i < 4 && squareOf(a[i] - b[(i + shift) % 4]) < far * far) {
            ++i;
        }
        if (i == 4) {
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
    const std::vector<Quad> all = quadsOf(edges.weight.size(), lines);
    std::vector<const Quad *> compared(all.size());
    std::transform(all.begin(), all.end(), compared.begin(),
                   [](const Quad &quad) { return &quad; });
    const auto end = compared.begin() + std::ptrdiff_t(std::min(all.size(), maxCompared));
    std::partial_sort(compared.begin(), end, compared.end(),
                      [](const Quad *a, const Quad *b) { return a->score > b->score; });
    std::vector<Quad> best;
    for (auto quad = compared.begin(); quad != end && best.size() < count; ++quad) {
        const bool isNew = std::none_of(best.begin(), best.end(), [&](const Quad &other) {
            return areSame((*quad)->corners, other.corners);
        });
        if (isNew) {
            best.push_back(**quad);
        }
    }
    return best;
}

} // namespace portable::pagesearch
