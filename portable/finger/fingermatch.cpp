// SPDX-License-Identifier: MIT
#include "portable/base/featuretext.h"
#include "portable/finger/fingerprint.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstring>
#include <unordered_map>

namespace portable {

namespace {

constexpr float pi = float(CV_PI);
constexpr float rotationBin = pi / 15; // 12 degrees
constexpr float shiftBin = 16; // pixels
constexpr size_t maxAlignments = 12; // to be tried, those with most votes
constexpr int refits = 3;
constexpr float roughReach = 18; // pixels between paired minutiae, before the first refit
constexpr float fineReach = 9; // after it
constexpr float maxDirectionGap = pi / 7; // about 26 degrees
constexpr double overlapMargin = 6; // pixels around a print's outline
constexpr int minOverlap = 10; // minutiae in the shared area; fewer count as this many

constexpr char featureMark[] = "FIN1";
constexpr int countDigits = 2;
constexpr int placeDigits = 2; // whole pixels
constexpr int directionDigits = 2;
constexpr float directionUnit = 2 * pi / (1 << 12);
constexpr int forkDigits = 1;

/// A rotation and a shift, as complex numbers: z becomes turn * z + shift.
struct Alignment
{
    std::complex<float> turn{1, 0};
    std::complex<float> shift;

    Minutia of(const Minutia &from) const
    {
        const std::complex<float> place =
            turn * std::complex<float>(from.place.x, from.place.y) + shift;
        return {{place.real(), place.imag()}, from.direction + std::arg(turn), from.isFork};
    }
};

/// The same angle from -pi to pi.
float wrapped(float angle)
{
    return std::remainder(angle, 2 * pi);
}

/// Key of an alignment's bin; alignments in the same bin are close to each other.
quint64 binOf(float angle, const std::complex<float> &shift, float half)
{
    const auto part = [half](float value, float size) {
        return quint64(int(std::floor(value / size + half)) + (1 << 15)) & 0xFFFF;
    };
    return part(angle, rotationBin) << 48U | part(shift.real(), shiftBin) << 32U
        | part(shift.imag(), shiftBin) << 16U | quint64(half > 0);
}

/// Every pair votes for the alignment that makes it coincide. \return the alignments with most
/// votes
std::vector<Alignment> topAlignments(const Minutiae &a, const Minutiae &b)
{
    struct Bin
    {
        int votes = 0;
        std::complex<float> turn;
        std::complex<float> shift;
    };
    std::unordered_map<quint64, Bin> bins;
    bins.reserve(2 * a.size() * b.size());
    for (const Minutia &from : a) {
        for (const Minutia &to : b) {
            const float angle = wrapped(to.direction - from.direction);
            const auto turn = std::polar(1.0F, angle);
            const auto shift = std::complex<float>(to.place.x, to.place.y)
                - turn * std::complex<float>(from.place.x, from.place.y);
            // Two overlapping grids of bins, so that no alignment falls between bins in both.
            for (const float half : {0.0F, 0.5F}) {
                Bin &bin = bins[binOf(angle, shift, half)];
                ++bin.votes;
                bin.turn += turn;
                bin.shift += shift;
            }
        }
    }
    std::vector<const Bin *> order;
    for (const auto &bin : bins) {
        order.push_back(&bin.second);
    }
    const auto count = std::min(maxAlignments, order.size());
    std::partial_sort(order.begin(), order.begin() + std::ptrdiff_t(count), order.end(),
                      [](const Bin *x, const Bin *y) { return x->votes > y->votes; });
    std::vector<Alignment> result;
    for (size_t i = 0; i < count; ++i) {
        const Bin &bin = *order[i];
        const float length = std::max(std::abs(bin.turn), 1e-6F);
        result.push_back({bin.turn / length, bin.shift / float(bin.votes)});
    }
    return result;
}

using Pairs = std::vector<std::pair<const Minutia *, const Minutia *>>;

/// Pairs of coinciding minutiae, closest first, each minutia at most once.
Pairs pairUp(const Minutiae &a, const Minutiae &b, const Alignment &alignment, float reach)
{
    struct Candidate
    {
        float apart; // squared
        size_t from;
        size_t to;
    };
    std::vector<Candidate> candidates;
    for (size_t i = 0; i < a.size(); ++i) {
        const Minutia moved = alignment.of(a[i]);
        for (size_t k = 0; k < b.size(); ++k) {
            const cv::Point2f apart = moved.place - b[k].place;
            if (apart.dot(apart) <= reach * reach
                && std::fabs(wrapped(moved.direction - b[k].direction)) <= maxDirectionGap) {
                candidates.push_back({apart.dot(apart), i, k});
            }
        }
    }
    std::sort(candidates.begin(), candidates.end(),
              [](const Candidate &x, const Candidate &y) { return x.apart < y.apart; });
    std::vector<bool> isTakenA(a.size());
    std::vector<bool> isTakenB(b.size());
    Pairs pairs;
    for (const Candidate &candidate : candidates) {
        if (!isTakenA[candidate.from] && !isTakenB[candidate.to]) {
            isTakenA[candidate.from] = true;
            isTakenB[candidate.to] = true;
            pairs.emplace_back(&a[candidate.from], &b[candidate.to]);
        }
    }
    return pairs;
}

/// The alignment that fits the pairs best: least squares, without scaling.
Alignment fit(const Pairs &pairs)
{
    const auto number = [](const Minutia *minutia) {
        return std::complex<float>(minutia->place.x, minutia->place.y);
    };
    std::complex<float> meanFrom;
    std::complex<float> meanTo;
    for (const auto &pair : pairs) {
        meanFrom += number(pair.first) / float(pairs.size());
        meanTo += number(pair.second) / float(pairs.size());
    }
    std::complex<float> turn;
    for (const auto &pair : pairs) {
        turn += (number(pair.second) - meanTo) * std::conj(number(pair.first) - meanFrom);
    }
    turn /= std::max(std::abs(turn), 1e-6F);
    return {turn, meanTo - turn * meanFrom};
}

using Outline = std::vector<cv::Point2f>;

Outline outlineOf(const Minutiae &minutiae)
{
    Outline places;
    for (const Minutia &minutia : minutiae) {
        places.push_back(minutia.place);
    }
    Outline outline;
    cv::convexHull(places, outline);
    return outline;
}

int countWithin(const Minutiae &minutiae, const Alignment &alignment, const Outline &outline)
{
    return int(std::count_if(minutiae.begin(), minutiae.end(), [&](const Minutia &minutia) {
        return cv::pointPolygonTest(outline, alignment.of(minutia).place, true) > -overlapMargin;
    }));
}

Alignment inverse(const Alignment &alignment)
{
    return {std::conj(alignment.turn), -std::conj(alignment.turn) * alignment.shift};
}

} // namespace

int fingerScore(const Minutiae &a, const Minutiae &b)
{
    if (a.size() < 3 || b.size() < 3) {
        return 0;
    }
    const Outline outlineA = outlineOf(a);
    const Outline outlineB = outlineOf(b);
    double best = 0;
    for (Alignment alignment : topAlignments(a, b)) {
        Pairs pairs = pairUp(a, b, alignment, roughReach);
        for (int i = 0; i < refits && pairs.size() >= 3; ++i) {
            alignment = fit(pairs);
            pairs = pairUp(a, b, alignment, fineReach);
        }
        const int sharedOfA = std::max(countWithin(a, alignment, outlineB), minOverlap);
        const int sharedOfB = std::max(countWithin(b, inverse(alignment), outlineA), minOverlap);
        const auto count = double(pairs.size());
        best = std::max(best, count * count / (double(sharedOfA) * sharedOfB));
    }
    return std::min(100, int(std::lround(100 * best)));
}

QByteArray fingerFeature(const Minutiae &minutiae)
{
    FeatureWriter feature(featureMark);
    const size_t count = std::min(minutiae.size(), maxMinutiae);
    feature.put(int(count), countDigits);
    for (size_t i = 0; i < count; ++i) {
        const Minutia &minutia = minutiae[i];
        feature.put(int(std::lround(minutia.place.x)), placeDigits);
        feature.put(int(std::lround(minutia.place.y)), placeDigits);
        feature.put(int(minutia.direction / directionUnit), directionDigits);
        feature.put(minutia.isFork ? 1 : 0, forkDigits);
    }
    return feature.finish();
}

bool readFingerFeature(const char **text, Minutiae *minutiae)
{
    FeatureReader reader(*text, featureMark);
    const auto count = size_t(reader.take(countDigits));
    minutiae->clear();
    for (size_t i = 0; i < count && count <= maxMinutiae && reader.isGood(); ++i) {
        Minutia minutia;
        minutia.place.x = float(reader.take(placeDigits));
        minutia.place.y = float(reader.take(placeDigits));
        minutia.direction = float(reader.take(directionDigits)) * directionUnit;
        minutia.isFork = reader.take(forkDigits) != 0;
        minutiae->push_back(minutia);
    }
    if (!reader.finish()) {
        return false;
    }
    *text = reader.end();
    return true;
}

const char *nextFingerFeature(const char *text)
{
    return std::strstr(text + 1, featureMark);
}

} // namespace portable
