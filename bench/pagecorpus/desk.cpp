// SPDX-License-Identifier: MIT
#include "bench/pagecorpus/desk.h"

#include "bench/pagecorpus/fields.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

namespace pagecorpus {

namespace {

/// Fills a field with what `tone` gives for x and y.
template <class Tone> cv::Mat filled(const cv::Size &size, Tone tone)
{
    cv::Mat field(size, CV_32F);
    for (int y = 0; y < size.height; ++y) {
        auto *row = field.ptr<float>(y);
        for (int x = 0; x < size.width; ++x) {
            row[x] = tone(x, y);
        }
    }
    return field;
}

float wave(double phase)
{
    return float(0.5 + 0.5 * std::sin(phase));
}

cv::Mat woodTone(cv::RNG &random, const cv::Size &size)
{
    const double ring = between(random, 15, 70);
    const float depth = between(random, 0.15, 0.5);
    const cv::Mat bend = noiseField(random, size, {900, 120});
    const cv::Mat fine = noiseField(random, size, {260, 4});
    const cv::Mat pores = noiseField(random, size, {40, 2});
    return filled(size, [&](int x, int y) {
        const float rings = wave(y / ring * 2 + 5.0 * double(bend.at<float>(y, x)));
        return 0.4F
            + depth * (rings - 0.5F + 0.5F * fine.at<float>(y, x) + 0.3F * pores.at<float>(y, x));
    });
}

cv::Mat plankTone(cv::RNG &random, const cv::Size &size)
{
    cv::Mat tone = woodTone(random, size);
    const int width = random.uniform(90, 320);
    const int gap = random.uniform(2, 5);
    for (int y = 0; y < size.height; y += width) {
        const int rows = std::min(width, size.height - y);
        for (int x = -random.uniform(0, 900); x < size.width;) {
            const int end = x + random.uniform(600, 1500);
            const cv::Range columns(std::max(0, x), std::clamp(end, 0, size.width));
            if (!columns.empty()) {
                cv::Mat board = tone(cv::Range(y, y + rows), columns);
                board += between(random, -0.2, 0.2);
                board.colRange(0, std::min(gap, board.cols)) = 1.2F;
                board.rowRange(0, std::min(gap, board.rows)) = 1.2F;
            }
            x = end;
        }
    }
    return tone;
}

cv::Mat patternTone(cv::RNG &random, const cv::Size &size, Desk kind)
{
    const double cell = between(random, 18, 160);
    const int grout = random.uniform(2, 7);
    switch (kind) {
    case Desk::Checks:
        return filled(size,
                      [&](int x, int y) { return float((int(x / cell) + int(y / cell)) & 1); });
    case Desk::Stripes:
        return filled(size, [&](int, int y) { return float(int(y / cell) & 1); });
    case Desk::Dots:
        return filled(size, [&](int x, int y) {
            const double dx = std::fmod(x, cell) / cell - 0.5;
            const double dy = std::fmod(y, cell) / cell - 0.5;
            return dx * dx + dy * dy < 0.06 ? 1.0F : 0.0F;
        });
    case Desk::Tiles:
        return filled(size, [&](int x, int y) {
            const double side = 2 * cell + 60;
            return std::fmod(x, side) < grout || std::fmod(y, side) < grout ? 1.0F : 0.0F;
        });
    default: {
        const double thread = 2 + cell / 20;
        return filled(size, [&](int x, int y) {
            return 0.3F * wave(x / thread * 2) + 0.3F * wave(y / thread * 2);
        });
    }
    }
}

cv::Mat marbleTone(cv::RNG &random, const cv::Size &size)
{
    const cv::Mat coarse = noiseField(random, size, {420, 420});
    const cv::Mat middle = noiseField(random, size, {130, 130});
    const cv::Mat fine = noiseField(random, size, {30, 30});
    return filled(size, [&](int x, int y) {
        const float height =
            coarse.at<float>(y, x) + 0.5F * middle.at<float>(y, x) + 0.15F * fine.at<float>(y, x);
        return std::exp(-12 * std::abs(height)) * 0.8F + 0.1F * coarse.at<float>(y, x) + 0.1F;
    });
}

cv::Mat toneOf(cv::RNG &random, const cv::Size &size, Desk kind)
{
    switch (kind) {
    case Desk::Plain:
        return 0.06 * noiseField(random, size, {300, 300})
            + 0.03 * noiseField(random, size, {2, 2});
    case Desk::Wood:
        return woodTone(random, size);
    case Desk::Planks:
        return plankTone(random, size);
    case Desk::Marble:
        return marbleTone(random, size);
    case Desk::TwoTone:
        return filled(size, [&](int, int y) { return y < size.height * 0.42 ? 1.0F : 0.0F; });
    default:
        return patternTone(random, size, kind);
    }
}

} // namespace

cv::Mat paintDesk(cv::RNG &random, const cv::Size &size, Desk kind, const cv::Vec3f &color,
                  const cv::Vec3f &second)
{
    const int side = int(std::hypot(size.width, size.height)) + 2;
    cv::Mat tone = toneOf(random, {side, side}, kind);
    const double angle = happens(random, 0.4)
        ? 90 * random.uniform(0, 4) + random.uniform(-2.0, 2.0)
        : random.uniform(0.0, 360.0);
    cv::Mat turn = cv::getRotationMatrix2D({float(side) / 2, float(side) / 2}, angle, 1);
    turn.at<double>(0, 2) -= (side - size.width) / 2.0;
    turn.at<double>(1, 2) -= (side - size.height) / 2.0;
    cv::Mat turned;
    cv::warpAffine(tone, turned, turn, size, cv::INTER_LINEAR, cv::BORDER_REFLECT);
    cv::Mat picture(size, CV_32FC3, cv::Scalar(color[0], color[1], color[2]));
    paint(picture, turned, second);
    return picture;
}

} // namespace pagecorpus
