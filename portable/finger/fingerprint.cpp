// SPDX-License-Identifier: MIT
#include "portable/finger/fingerprint.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cmath>

namespace portable {

namespace {

// Lengths are in pixels at 500 dpi.
constexpr int maxSide = 800; // of a picture; 500 dpi sensors deliver less
constexpr int minSide = 64;
constexpr int directions = 16; // of the filters
constexpr double flowSigma = 8; // smoothing of the ridge direction
constexpr float minStrength = 40; // of the gradient, squared; less is background
constexpr float minCoherence = 0.25F;
constexpr int edgeMargin = 14; // ridges that end at the edge of the print are no minutiae
constexpr double minPeriod = 6; // of the ridges
constexpr double maxPeriod = 14;
constexpr double backgroundSigma = 20; // wider structures are uneven pressure or light
constexpr double minRidgeShare = 0.5; // noisiest prints have 0.6, noise and text 0.4
constexpr int traceLength = 12; // along the ridge, for the direction of a minutia
constexpr int minBranch = 8; // shorter branches are spurs and specks
constexpr float minDistance = 7; // closer minutiae come from a break or a bridge
constexpr size_t goodMinutiaCount = 25; // a good picture has at least this many

/// Ridge direction (0 to pi, clockwise), its coherence (0 to 1) and the mask of the print (255).
struct Flow
{
    cv::Mat angle;
    cv::Mat coherence;
    cv::Mat mask;
};

Flow ridgeFlow(const cv::Mat &picture)
{
    cv::Mat dx;
    cv::Mat dy;
    cv::Sobel(picture, dx, CV_32F, 1, 0, 3, 0.25);
    cv::Sobel(picture, dy, CV_32F, 0, 1, 3, 0.25);
    const auto smooth = [](const cv::Mat &product) {
        cv::Mat result;
        cv::GaussianBlur(product, result, {}, flowSigma);
        return result;
    };
    const cv::Mat xx = smooth(dx.mul(dx));
    const cv::Mat yy = smooth(dy.mul(dy));
    const cv::Mat xy = smooth(dx.mul(dy));
    Flow flow;
    flow.angle.create(picture.size(), CV_32F);
    flow.coherence.create(picture.size(), CV_32F);
    flow.mask.create(picture.size(), CV_8U);
    for (int y = 0; y < picture.rows; ++y) {
        for (int x = 0; x < picture.cols; ++x) {
            const float a = xx.at<float>(y, x);
            const float b = yy.at<float>(y, x);
            const float c = 2 * xy.at<float>(y, x);
            // Ridges run across the gradient.
            float angle = 0.5F * std::atan2(c, a - b) + float(CV_PI / 2);
            if (angle < 0) {
                angle += float(CV_PI);
            }
            flow.angle.at<float>(y, x) = angle;
            const float strength = a + b;
            const float coherence = std::hypot(a - b, c) / std::max(strength, 1e-3F);
            flow.coherence.at<float>(y, x) = coherence;
            flow.mask.at<uchar>(y, x) =
                strength > minStrength && coherence > minCoherence ? 255 : 0;
        }
    }
    // Merge it into one area without holes.
    const cv::Mat disc = cv::getStructuringElement(cv::MORPH_ELLIPSE, {25, 25});
    cv::morphologyEx(flow.mask, flow.mask, cv::MORPH_CLOSE, disc);
    cv::morphologyEx(flow.mask, flow.mask, cv::MORPH_OPEN, disc);
    return flow;
}

struct Waves
{
    double period = 0; ///< Strongest period between minPeriod and maxPeriod, in pixels.
    double share = 0; ///< Share of such periods in the picture's power, 0 to 1.
};

/// Analyzes the picture's spectrum.
Waves ridgeWaves(const cv::Mat &picture, const cv::Mat &mask)
{
    cv::Mat values;
    picture.convertTo(values, CV_32F);
    cv::Mat uneven;
    cv::GaussianBlur(values, uneven, {}, backgroundSigma);
    values -= uneven;
    values -= cv::mean(values, mask);
    values.setTo(0, mask == 0);
    const int side = cv::getOptimalDFTSize(std::max(values.rows, values.cols));
    cv::copyMakeBorder(values, values, 0, side - values.rows, 0, side - values.cols,
                       cv::BORDER_CONSTANT, cv::Scalar(0));
    cv::Mat spectrum;
    cv::dft(values, spectrum, cv::DFT_COMPLEX_OUTPUT);
    const int first = cvCeil(side / maxPeriod);
    const int last = cvFloor(side / minPeriod);
    std::vector<double> power(size_t(side), 0.0);
    double allPower = 1e-9;
    for (int y = 0; y < side; ++y) {
        const double fy = std::min(y, side - y);
        for (int x = 0; x <= side / 2; ++x) {
            const cv::Vec2f value = spectrum.at<cv::Vec2f>(y, x);
            const auto ring = size_t(cvRound(std::hypot(fy, x)));
            power[ring] += double(value.dot(value));
            allPower += double(value.dot(value));
        }
    }
    double ridgePower = 0;
    double weighted = 0;
    double sum = 1e-9;
    for (int ring = first; ring <= last; ++ring) {
        ridgePower += power[size_t(ring)];
        const double weight = power[size_t(ring)] * power[size_t(ring)]; // the peak counts most
        weighted += weight * ring;
        sum += weight;
    }
    return {std::clamp(weighted > 0 ? side * sum / weighted : 9.0, minPeriod, maxPeriod),
            ridgePower / allPower};
}

/// Gabor-like filter: a wave across `angle` under a Gaussian, without a constant part.
cv::Mat ridgeFilter(double angle, double period)
{
    const int reach = cvRound(period * 1.2);
    const double across = period * 0.45;
    const double along = period * 0.55;
    cv::Mat kernel(2 * reach + 1, 2 * reach + 1, CV_32F);
    for (int y = -reach; y <= reach; ++y) {
        for (int x = -reach; x <= reach; ++x) {
            const double u = x * std::cos(angle) + y * std::sin(angle);
            const double v = y * std::cos(angle) - x * std::sin(angle);
            kernel.at<float>(y + reach, x + reach) =
                float(std::exp(-0.5 * (u * u / (along * along) + v * v / (across * across)))
                      * std::cos(2 * CV_PI * v / period));
        }
    }
    kernel -= cv::mean(kernel);
    return kernel;
}

/// Binary picture: 1 on ridges.
cv::Mat ridges(const cv::Mat &picture, const Flow &flow, double period)
{
    cv::Mat values;
    picture.convertTo(values, CV_32F);
    cv::Mat mean;
    cv::GaussianBlur(values, mean, {}, 2 * period);
    values -= mean;
    cv::Mat result(picture.size(), CV_8U, cv::Scalar(0));
    cv::Mat filtered;
    for (int direction = 0; direction < directions; ++direction) {
        cv::filter2D(values, filtered, CV_32F, ridgeFilter(direction * CV_PI / directions, period),
                     {-1, -1}, 0, cv::BORDER_REPLICATE);
        for (int y = 0; y < picture.rows; ++y) {
            for (int x = 0; x < picture.cols; ++x) {
                const int nearest =
                    cvRound(double(flow.angle.at<float>(y, x)) * directions / CV_PI) % directions;
                if (nearest == direction && flow.mask.at<uchar>(y, x) != 0) {
                    result.at<uchar>(y, x) = filtered.at<float>(y, x) < 0 ? 1 : 0;
                }
            }
        }
    }
    return result;
}

/// Offsets of a pixel's neighbors, clockwise from the one above.
constexpr std::array<std::array<int, 2>, 8> around{
    {{0, -1}, {1, -1}, {1, 0}, {1, 1}, {0, 1}, {-1, 1}, {-1, 0}, {-1, -1}}};

using Neighbors = std::array<uchar, 8>;

Neighbors neighbors(const cv::Mat &lines, int x, int y)
{
    Neighbors values;
    for (size_t i = 0; i < around.size(); ++i) {
        values[i] = lines.at<uchar>(y + around[i][1], x + around[i][0]);
    }
    return values;
}

/// Crossing number, the 0-to-1 changes around a pixel: 1 at an end, 2 on a line, 3 at a fork.
int crossings(const Neighbors &values)
{
    int count = 0;
    for (size_t i = 0; i < values.size(); ++i) {
        count += values[i] == 0 && values[(i + 1) % values.size()] == 1 ? 1 : 0;
    }
    return count;
}

/// Thins ridges to lines of one pixel (Zhang and Suen, CACM 27, 1984). The border is cleared.
void thin(cv::Mat &lines)
{
    cv::rectangle(lines, {{}, lines.size()}, 0);
    std::vector<cv::Point> gone;
    bool changed = true;
    while (changed) {
        changed = false;
        for (const bool second : {false, true}) {
            gone.clear();
            for (int y = 1; y < lines.rows - 1; ++y) {
                for (int x = 1; x < lines.cols - 1; ++x) {
                    if (lines.at<uchar>(y, x) == 0) {
                        continue;
                    }
                    const Neighbors n = neighbors(lines, x, y);
                    const int count = n[0] + n[1] + n[2] + n[3] + n[4] + n[5] + n[6] + n[7];
                    const bool isEdge = second ? n[0] * n[2] * n[6] == 0 && n[0] * n[4] * n[6] == 0
                                               : n[0] * n[2] * n[4] == 0 && n[2] * n[4] * n[6] == 0;
                    if (count >= 2 && count <= 6 && isEdge && crossings(n) == 1) {
                        gone.emplace_back(x, y);
                    }
                }
            }
            for (const cv::Point &point : gone) {
                lines.at<uchar>(point) = 0;
            }
            changed = changed || !gone.empty();
        }
    }
}

/// Follows a line from `start` through `next`. \return its end, or the point after traceLength
/// steps
cv::Point trace(const cv::Mat &lines, cv::Point start, cv::Point next, int *steps)
{
    cv::Point before = start;
    cv::Point at = next;
    for (*steps = 1; *steps < traceLength; ++*steps) {
        const Neighbors values = neighbors(lines, at.x, at.y);
        if (crossings(values) != 2 && *steps > 2) {
            break;
        }
        cv::Point following(-1, -1);
        int farthest = 2; // squared distance from `before`: neither back nor beside it
        for (size_t i = 0; i < around.size(); ++i) {
            const cv::Point candidate = at + cv::Point(around[i][0], around[i][1]);
            const cv::Point step = candidate - before;
            if (values[i] != 0 && candidate != start && step.dot(step) >= farthest) {
                farthest = step.dot(step);
                following = candidate;
            }
        }
        if (following.x < 1 || following.y < 1 || following.x > lines.cols - 2
            || following.y > lines.rows - 2) {
            break;
        }
        before = at;
        at = following;
    }
    return at;
}

float angleTo(const cv::Point &from, const cv::Point &to)
{
    const float angle = std::atan2(float(to.y - from.y), float(to.x - from.x));
    return angle < 0 ? angle + float(2 * CV_PI) : angle;
}

float angleBetween(float a, float b)
{
    const float difference = std::fabs(a - b);
    return std::min(difference, float(2 * CV_PI) - difference);
}

/// Directions of the lines that leave this pixel of a line; nothing if one is a spur or a speck.
std::vector<float> branchesAt(const cv::Mat &lines, const cv::Point &place)
{
    const Neighbors values = neighbors(lines, place.x, place.y);
    std::vector<float> branches;
    for (size_t i = 0; i < around.size(); ++i) {
        // One branch for each run of set neighbors; of two in a run, the straight one.
        const bool isRun = values[i] == 1 && values[(i + 7) % 8] == 0;
        if (isRun) {
            const size_t at = i % 2 == 1 && values[(i + 1) % 8] == 1 ? (i + 1) % 8 : i;
            int steps = 0;
            const cv::Point end =
                trace(lines, place, place + cv::Point(around[at][0], around[at][1]), &steps);
            if (steps < minBranch) {
                return {};
            }
            branches.push_back(angleTo(place, end));
        }
    }
    return branches;
}

/// The stem of a fork: the branch opposite the narrowest angle of the other two.
float stemOf(const std::vector<float> &branches)
{
    size_t stem = 0;
    float narrowest = 10;
    for (size_t i = 0; i < 3; ++i) {
        const float angle = angleBetween(branches[(i + 1) % 3], branches[(i + 2) % 3]);
        if (angle < narrowest) {
            narrowest = angle;
            stem = i;
        }
    }
    return branches[stem];
}

/// The minutia at a pixel of a line. \return false if there is none
bool minutiaAt(const cv::Mat &lines, const cv::Point &place, Minutia *minutia)
{
    const int count = crossings(neighbors(lines, place.x, place.y));
    if (count != 1 && count != 3) {
        return false;
    }
    const std::vector<float> branches = branchesAt(lines, place);
    if (branches.empty()) {
        return false;
    }
    minutia->place = place;
    minutia->isFork = count == 3;
    minutia->direction = minutia->isFork ? stemOf(branches) : branches[0];
    return true;
}

/// Drops minutiae that are so close together that they come from a break or a bridge.
Minutiae withoutNeighbors(const Minutiae &all)
{
    Minutiae result;
    for (const Minutia &one : all) {
        const auto near = std::count_if(all.begin(), all.end(), [&one](const Minutia &other) {
            return cv::norm(one.place - other.place) < double(minDistance);
        });
        if (near == 1) { // itself
            result.push_back(one);
        }
    }
    return result;
}

/// Minutiae of the thinned ridges, except near the edge of the print; the clearest, best first.
Minutiae findMinutiae(const cv::Mat &lines, const Flow &flow)
{
    cv::Mat inner;
    cv::erode(
        flow.mask, inner,
        cv::getStructuringElement(cv::MORPH_ELLIPSE, {2 * edgeMargin + 1, 2 * edgeMargin + 1}),
        {-1, -1}, 1, cv::BORDER_CONSTANT, 0);
    Minutiae found;
    for (int y = 1; y < lines.rows - 1; ++y) {
        for (int x = 1; x < lines.cols - 1; ++x) {
            Minutia minutia;
            if (lines.at<uchar>(y, x) != 0 && inner.at<uchar>(y, x) != 0
                && minutiaAt(lines, {x, y}, &minutia)) {
                found.push_back(minutia);
            }
        }
    }
    Minutiae minutiae = withoutNeighbors(found);
    const auto clarity = [&flow](const Minutia &minutia) {
        return flow.coherence.at<float>(cv::Point(minutia.place));
    };
    std::sort(minutiae.begin(), minutiae.end(),
              [&](const Minutia &a, const Minutia &b) { return clarity(a) > clarity(b); });
    minutiae.resize(std::min(minutiae.size(), maxMinutiae));
    return minutiae;
}

/// 100 for clear ridges over the area of a finger with enough minutiae to compare; 0 without any.
int qualityOf(const Flow &flow, double area, size_t minutiae)
{
    constexpr double goodArea = 200 * 200;
    constexpr double goodCoherence = 0.75;
    const double clarity = cv::mean(flow.coherence, flow.mask)[0] / goodCoherence;
    const double enough = double(minutiae) / double(goodMinutiaCount);
    return cvRound(100 * std::min(1.0, clarity) * std::min(1.0, area / goodArea)
                   * std::sqrt(std::min(1.0, enough)));
}

} // namespace

Fingerprint readFingerprint(const cv::Mat &picture)
{
    Fingerprint print;
    cv::Mat gray = picture;
    const int side = std::max(gray.cols, gray.rows);
    if (std::min(gray.cols, gray.rows) < minSide) {
        return print;
    }
    if (side > maxSide) {
        const double scale = double(maxSide) / side;
        cv::resize(picture, gray, {}, scale, scale, cv::INTER_AREA);
    }
    const Flow flow = ridgeFlow(gray);
    const double area = cv::countNonZero(flow.mask);
    if (area < minSide * minSide) {
        return print;
    }
    const Waves waves = ridgeWaves(gray, flow.mask);
    if (waves.share < minRidgeShare) { // clear lines but not ridges: text, a photograph
        return print;
    }
    cv::Mat lines = ridges(gray, flow, waves.period);
    thin(lines);
    print.minutiae = findMinutiae(lines, flow);
    print.quality = qualityOf(flow, area, print.minutiae.size());
    return print;
}

} // namespace portable
