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
            if (areOpposite(m_lines[line].along(), m_lines[other].along())) {
                searchBetween(line, other);
            }
        }
        return std::move(m_found);
    }

private:
    /// A line that crosses two opposite ones, with all that is needed of it for each of its quads.
    struct Transversal
    {
        size_t line;
        cv::Point2f along;
        Side side; ///< between the two
        float beyond; ///< as in Quad, of this side
        cv::Point2f atTop; ///< where it crosses them
        cv::Point2f atBottom;
        SupportedLine::Place onTop; ///< the same on them
        SupportedLine::Place onBottom;
    };

    static bool areOpposite(const cv::Point2f &a, const cv::Point2f &b)
    {
        return std::abs(a.dot(b)) > parallel;
    }

    /// All quads of which these two are opposite sides.
    void searchBetween(size_t top, size_t bottom)
    {
        findTransversals(top, bottom);
        for (size_t a = 0; a < m_between.size() && m_found.considered < maxConsidered; ++a) {
            const Transversal &left = m_between[a];
            m_before = m_found.considered;
            if (left.line < top) {
                continue; // Each quad is met twice, once by each pair of its opposite sides.
            }
            for (size_t b = a + 1; b < m_between.size(); ++b) {
                if (areOpposite(left.along, m_between[b].along)) {
                    consider(m_lines[top], m_between[b], m_lines[bottom], left);
                }
            }
        }
    }

    /// The lines that are supported between these two and end there.
    void findTransversals(size_t top, size_t bottom)
    {
        m_between.clear();
        for (const size_t i : m_crossings.crossedBy(top)) {
            const auto &atTop = m_crossings.on(i, top);
            const auto &atBottom = m_crossings.on(i, bottom);
            if (!atBottom) {
                continue;
            }
            const Side side(*atTop, *atBottom);
            if (side.support < minSupport) {
                continue;
            }
            const auto &onTop = m_crossings.on(top, i);
            const auto &onBottom = m_crossings.on(bottom, i);
            if (!onTop || !onBottom) {
                continue;
            }
            const SupportedLine &line = m_lines[i];
            const Beyond beyond = supportBeyond(line, side);
            if (std::min(beyond.before, beyond.after) > 0.6F) {
                continue; // It goes on both ways.
            }
            m_between.push_back({i, line.along(), side, share(beyond, line, side),
                                 line.at(atTop->distance), line.at(atBottom->distance), *onTop,
                                 *onBottom});
        }
        if (m_between.size() > maxOthers) {
            std::partial_sort(m_between.begin(), m_between.begin() + maxOthers, m_between.end(),
                              [](const Transversal &a, const Transversal &b) {
                                  return a.side.support > b.side.support;
                              });
            m_between.erase(m_between.begin() + maxOthers, m_between.end());
        }
    }

    void consider(const SupportedLine &topLine, const Transversal &right,
                  const SupportedLine &bottomLine, const Transversal &left)
    {
        const Side top(left.onTop, right.onTop);
        if (top.support < minSupport) {
            return;
        }
        const Side bottom(left.onBottom, right.onBottom);
        if (bottom.support < minSupport) {
            return;
        }
        ++m_found.considered;
        Quad quad;
        quad.corners = {left.atTop, right.atTop, right.atBottom, left.atBottom};
        if (!isPageShaped(quad.corners)) {
            return;
        }
        const std::array<Side, 4> sides{top, right.side, bottom, left.side};
        quad.beyond = {beyondOf(topLine, top), right.beyond, beyondOf(bottomLine, bottom),
                       left.beyond};
        float lengths = 0;
        float supported = 0;
        float least = 1;
        float beyond = 0;
        for (size_t i = 0; i < 4; ++i) {
            const Side &side = sides[i];
            quad.support[i] = side.support;
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

    /// The support of a line before and after one of its sides.
    struct Beyond
    {
        float before;
        float after;
    };

    static Beyond supportBeyond(const SupportedLine &line, const Side &side)
    {
        const float reach = std::clamp(0.3F * (side.to - side.from), 20.0F, 50.0F);
        return {line.supportNearby(side.from - nearCorner - reach, side.from - nearCorner),
                line.supportNearby(side.to + nearCorner, side.to + nearCorner + reach)};
    }

    /// As in Quad: a page's sides end at its corners; those of tiles and boards often go on.
    static float share(const Beyond &beyond, const SupportedLine &line, const Side &side)
    {
        constexpr float least = 2 * nearCorner; // pixels that say something
        if (side.from < least) {
            return beyond.after;
        }
        return side.to > line.length() - least ? beyond.before : (beyond.before + beyond.after) / 2;
    }

    static float beyondOf(const SupportedLine &line, const Side &side)
    {
        return share(supportBeyond(line, side), line, side);
    }

    bool isPageShaped(const Corners &corners) const
    {
        std::array<cv::Point2f, 4> sides;
        std::array<double, 4> lengths{};
        for (size_t i = 0; i < 4; ++i) {
            sides[i] = corners[(i + 1) % 4] - corners[i];
            lengths[i] = cv::norm(sides[i]);
        }
        double turns = 0;
        for (size_t i = 0; i < 4; ++i) {
            const cv::Point2f &in = sides[i];
            const cv::Point2f &out = sides[(i + 1) % 4];
            const double turn = in.x * out.y - in.y * out.x;
            const double product = std::max(lengths[i] * lengths[(i + 1) % 4], 1e-3);
            if (turn * turns < 0 || std::abs(in.dot(out)) > maxCosine * product) {
                return false;
            }
            turns += turn;
        }
        const auto [shortest, longest] = std::minmax_element(lengths.begin(), lengths.end());
        return *shortest >= double(minBreadth) * *longest
            && areaOf(corners) >= minPage * m_size.area();
    }

    cv::Size m_size;
    const std::vector<SupportedLine> &m_lines;
    const Crossings &m_crossings;
    std::vector<Transversal> m_between; // the two that are searched
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
    std::vector<const Quad *> left(all.size());
    std::transform(all.begin(), all.end(), left.begin(), [](const Quad &quad) { return &quad; });
    // A heap: mostly few of them are needed in order.
    const auto isWorse = [](const Quad *a, const Quad *b) { return a->score < b->score; };
    std::make_heap(left.begin(), left.end(), isWorse);
    std::vector<Quad> best;
    for (size_t i = 0; i < maxCompared && !left.empty() && best.size() < count; ++i) {
        std::pop_heap(left.begin(), left.end(), isWorse);
        const Quad &quad = *left.back();
        left.pop_back();
        const bool isNew = std::none_of(best.begin(), best.end(), [&](const Quad &other) {
            return areSame(quad.corners, other.corners);
        });
        if (isNew) {
            best.push_back(quad);
        }
    }
    return best;
}

} // namespace portable::pagesearch
