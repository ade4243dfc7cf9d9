// SPDX-License-Identifier: MIT
#include "portable/finger/fingerprint.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cmath>

namespace portable {

namespace {

// Lengths are in pixels at 500 dpi.
constexpr int largestSide = 800; // of a picture; sensors of 500 dpi stay below
constexpr int smallestSide = 64;
constexpr int directions = 16; // of the filters
constexpr double flowSigma = 8; // smoothing of the ridge direction
constexpr float ridgeStrength = 40; // of the gradient, squared: what is less is background
constexpr float leastCoherence = 0.25F;
constexpr int edgeMargin = 14; // ridges end at the edge of the print without being minutiae
constexpr double leastPeriod = 6; // of the ridges
constexpr double maxPeriod = 14;
constexpr double evenSigma = 20; // what is wider is uneven pressure or light
constexpr double leastShare = 0.5; // of the ridges; the noisiest prints 0.6, noise and texts 0.4
constexpr int traceLength = 12; // along the ridge, for the direction of a minutia
constexpr int shortestRidge = 8; // shorter ones are spurs and specks
constexpr float leastApart = 7; // nearer ones are a break or a bridge, not minutiae
constexpr size_t plentyOfMinutiae = 25; // a good picture has at least these

/// Direction of the ridges (0 to pi, clockwise), how clear it is, and where there are any.
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
                strength > ridgeStrength && coherence > leastCoherence ? 255 : 0;
        }
    }
    // One area without holes.
    const cv::Mat disc = cv::getStructuringElement(cv::MORPH_ELLIPSE, {25, 25});
    cv::morphologyEx(flow.mask, flow.mask, cv::MORPH_CLOSE, disc);
    cv::morphologyEx(flow.mask, flow.mask, cv::MORPH_OPEN, disc);
    return flow;
}

struct Waves
{
    double period = 0; ///< The strongest within what ridges can have.
    double share = 0; ///< Of those that ridges can have, in all that there are; 0 to 1.
};

/// The waves of the picture, by its spectrum.
Waves ridgeWaves(const cv::Mat &picture, const cv::Mat &mask)
{
    cv::Mat values;
    picture.convertTo(values, CV_32F);
    cv::Mat uneven;
    cv::GaussianBlur(values, uneven, {}, evenSigma);
    values -= uneven;
    values -= cv::mean(values, mask);
    values.setTo(0, mask == 0);
    const int side = cv::getOptimalDFTSize(std::max(values.rows, values.cols));
    cv::copyMakeBorder(values, values, 0, side - values.rows, 0, side - values.cols,
                       cv::BORDER_CONSTANT, cv::Scalar(0));
    cv::Mat spectrum;
    cv::dft(values, spectrum, cv::DFT_COMPLEX_OUTPUT);
    const int first = cvCeil(side / maxPeriod);
    const int last = cvFloor(side / leastPeriod);
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
    return {std::clamp(weighted > 0 ? side * sum / weighted : 9.0, leastPeriod, maxPeriod),
            ridgePower / allPower};
}

/// A wave across `angle` with an even middle, longer along it.
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

/// Ridges as 1, all else 0.
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

/// The neighbours of a pixel, clockwise from the one above.
constexpr std::array<std::array<int, 2>, 8> around{
    {{0, -1}, {1, -1}, {1, 0}, {1, 1}, {0, 1}, {-1, 1}, {-1, 0}, {-1, -1}}};

using Neighbours = std::array<uchar, 8>;

Neighbours neighbours(const cv::Mat &lines, int x, int y)
{
    Neighbours values;
    for (size_t i = 0; i < around.size(); ++i) {
        values[i] = lines.at<uchar>(y + around[i][1], x + around[i][0]);
    }
    return values;
}

/// How often it goes from 0 to 1 around a pixel: 1 at an end, 2 on a line, 3 at a fork.
int crossings(const Neighbours &values)
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
                    const Neighbours n = neighbours(lines, x, y);
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

/// Follows a line from `start` through `next`. \return where it is after some steps or ends
cv::Point trace(const cv::Mat &lines, cv::Point start, cv::Point next, int *steps)
{
    cv::Point before = start;
    cv::Point at = next;
    for (*steps = 1; *steps < traceLength; ++*steps) {
        const Neighbours values = neighbours(lines, at.x, at.y);
        if (crossings(values) != 2 && *steps > 2) {
            break;
        }
        cv::Point further(-1, -1);
        int farthest = 2; // squared distance from where it came: not back, and not beside that
        for (size_t i = 0; i < around.size(); ++i) {
            const cv::Point candidate = at + cv::Point(around[i][0], around[i][1]);
            const cv::Point step = candidate - before;
            if (values[i] != 0 && candidate != start && step.dot(step) >= farthest) {
                farthest = step.dot(step);
                further = candidate;
            }
        }
        if (further.x < 1 || further.y < 1 || further.x > lines.cols - 2
            || further.y > lines.rows - 2) {
            break;
        }
        before = at;
        at = further;
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

/// The minutia at a pixel of a line. \return false where there is none
bool minutiaAt(const cv::Mat &lines, const cv::Point &place, Minutia *minutia)
{
    const Neighbours values = neighbours(lines, place.x, place.y);
    const int count = crossings(values);
    if (count != 1 && count != 3) {
        return false;
    }
    std::vector<float> branches;
    for (size_t i = 0; i < around.size(); ++i) {
        // One branch for each run of neighbours; of two in a run the straight one stands for it.
        const bool isRun = values[i] == 1 && values[(i + 7) % 8] == 0;
        if (isRun) {
            const size_t at = i % 2 == 1 && values[(i + 1) % 8] == 1 ? (i + 1) % 8 : i;
            int steps = 0;
            const cv::Point end =
                trace(lines, place, place + cv::Point(around[at][0], around[at][1]), &steps);
            if (steps < shortestRidge) {
                return false;
            }
            branches.push_back(angleTo(place, end));
        }
    }
    minutia->place = place;
    minutia->isFork = count == 3;
    if (!minutia->isFork) {
        minutia->direction = branches[0];
        return true;
    }
    // The stem is the branch that the other two are farthest from.
    size_t stem = 0;
    float narrowest = 10;
    for (size_t i = 0; i < 3; ++i) {
        const float angle = angleBetween(branches[(i + 1) % 3], branches[(i + 2) % 3]);
        if (angle < narrowest) {
            narrowest = angle;
            stem = i;
        }
    }
    minutia->direction = branches[stem];
    return true;
}

/// Takes away those that lie so near to each other that a break or a bridge has made them.
Minutiae withoutNeighbours(const Minutiae &all)
{
    Minutiae result;
    for (const Minutia &one : all) {
        const auto near = std::count_if(all.begin(), all.end(), [&one](const Minutia &other) {
            return cv::norm(one.place - other.place) < double(leastApart);
        });
        if (near == 1) { // itself
            result.push_back(one);
        }
    }
    return result;
}

} // namespace

Fingerprint readFingerprint(const cv::Mat &picture)
{
    Fingerprint print;
    cv::Mat grey = picture;
    const int side = std::max(grey.cols, grey.rows);
    if (std::min(grey.cols, grey.rows) < smallestSide) {
        return print;
    }
    if (side > largestSide) {
        const double scale = double(largestSide) / side;
        cv::resize(picture, grey, {}, scale, scale, cv::INTER_AREA);
    }
    const Flow flow = ridgeFlow(grey);
    const double area = cv::countNonZero(flow.mask);
    if (area < smallestSide * smallestSide) {
        return print;
    }
    const Waves waves = ridgeWaves(grey, flow.mask);
    if (waves.share < leastShare) { // clear lines, but no ridges: a text, a photograph
        return print;
    }
    cv::Mat lines = ridges(grey, flow, waves.period);
    thin(lines);

    cv::Mat inner;
    cv::erode(
        flow.mask, inner,
        cv::getStructuringElement(cv::MORPH_ELLIPSE, {2 * edgeMargin + 1, 2 * edgeMargin + 1}),
        {-1, -1}, 1, cv::BORDER_CONSTANT, 0);
    Minutiae found;
    for (int y = 1; y < grey.rows - 1; ++y) {
        for (int x = 1; x < grey.cols - 1; ++x) {
            Minutia minutia;
            if (lines.at<uchar>(y, x) != 0 && inner.at<uchar>(y, x) != 0
                && minutiaAt(lines, {x, y}, &minutia)) {
                found.push_back(minutia);
            }
        }
    }
    print.minutiae = withoutNeighbours(found);
    const auto clarity = [&flow](const Minutia &minutia) {
        return flow.coherence.at<float>(cv::Point(minutia.place));
    };
    std::sort(print.minutiae.begin(), print.minutiae.end(),
              [&](const Minutia &a, const Minutia &b) { return clarity(a) > clarity(b); });
    print.minutiae.resize(std::min(print.minutiae.size(), maxMinutiae));

    // Clear ridges over a finger's area, with enough minutiae to compare.
    constexpr double goodArea = 200 * 200;
    const double clear = cv::mean(flow.coherence, flow.mask)[0];
    const double enough = std::min(1.0, double(print.minutiae.size()) / double(plentyOfMinutiae));
    print.quality = print.minutiae.empty()
        ? 0
        : cvRound(100 * std::min(1.0, clear / 0.75) * std::min(1.0, area / goodArea)
                  * std::sqrt(enough));
    return print;
}

} // namespace portable
