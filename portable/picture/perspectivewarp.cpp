// SPDX-License-Identifier: MIT
#include "portable/picture/perspectivewarp.h"

#include "portable/picture/parallel.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

namespace portable {

namespace {

constexpr int spanLength = 16; // pixels of the result, whose positions are interpolated linearly
constexpr int fractionBits = 16;
constexpr int rowBits = 5; // of the weights of two rows
constexpr int columnBits = 6; // of the weights of two columns

/// A place in a picture, in 65536ths of a pixel.
struct Place
{
    int64_t x;
    int64_t y;
};

// Two pairs of adjacent pixels in the compiler's vectors. The low bytes come first on all
// processors that are built for.
using Words = uint16_t __attribute__((vector_size(16)));
using Pairs = uint64_t __attribute__((vector_size(16)));

uint64_t eightBytes(const uchar *from)
{
    uint64_t bytes = 0;
    std::memcpy(&bytes, from, sizeof bytes);
    return bytes;
}

Words pairsAt(const uchar *first, const uchar *second)
{
    return Words(Pairs{eightBytes(first), eightBytes(second)});
}

/// Fractions of a coordinate of two pixels, each for the four words of one.
Words fractionsOf(int64_t first, int64_t step)
{
    const auto a = uint16_t(first);
    const auto b = uint16_t(first + step);
    return Words{a, a, a, a, b, b, b, b};
}

class PerspectiveWarp
{
public:
    PerspectiveWarp(const cv::Mat &picture, const cv::Mat &transform, cv::Mat &result)
        : m_picture(picture)
        , m_result(result)
        , m_back(cv::Mat(transform.inv()))
    {
    }

    void warpRows(const cv::Range &rows)
    {
        std::vector<Place> ends(size_t(m_result.cols / spanLength + 2));
        for (int y = rows.start; y < rows.end; ++y) {
            for (size_t i = 0; i < ends.size(); ++i) {
                ends[i] = placeOf(int(i) * spanLength, y);
            }
            for (int x = 0; x < m_result.cols; x += spanLength) {
                const size_t i = size_t(x / spanLength);
                const int done = x
                    + warpSpan(m_result.ptr(y, x), ends[i], ends[i + 1],
                               std::min(spanLength, m_result.cols - 1 - x));
                for (int rest = done; rest < std::min(x + spanLength, m_result.cols); ++rest) {
                    m_result.at<cv::Vec3b>(y, rest) = pixelAt(placeOf(rest, y));
                }
            }
        }
    }

private:
    /// Where a pixel of the result is in the picture, or next to it.
    Place placeOf(int x, int y) const
    {
        const double depth = m_back(2, 0) * x + m_back(2, 1) * y + m_back(2, 2);
        const double across = (m_back(0, 0) * x + m_back(0, 1) * y + m_back(0, 2)) / depth;
        const double down = (m_back(1, 0) * x + m_back(1, 1) * y + m_back(1, 2)) / depth;
        return {fixed(across, m_picture.cols, columnBits), fixed(down, m_picture.rows, rowBits)};
    }

    /// Rounded to what the weights can express, by the bits below them being left out later.
    static int64_t fixed(double coordinate, int length, int bits)
    {
        // In this order what isn't a number becomes `length`.
        const double near = std::max(-1.0, std::min(double(length), coordinate));
        return int64_t((near + 1) * (1 << fractionBits)) - (1 << fractionBits)
            + (1 << (fractionBits - bits - 1));
    }

    /// True when warpSpan() can read what is needed: 8 bytes of each of two rows.
    bool isInside(const Place &place) const
    {
        return place.x >= 0 && (place.x >> fractionBits) <= m_picture.cols - 3 && place.y >= 0
            && (place.y >> fractionBits) <= m_picture.rows - 2;
    }

    const uchar *pixel(const Place &place) const
    {
        return m_picture.data + (place.y >> fractionBits) * int64_t(m_picture.step)
            + (place.x >> fractionBits) * 3;
    }

    /**
     * Pixels from one place towards another, which is spanLength pixels away.
     * \param target  of 3 * count + 1 bytes
     * \return how many were written: none when a place isn't well inside the picture
     */
    int warpSpan(uchar *target, const Place &from, const Place &to, int count) const
    {
        if (!isInside(from) || !isInside(to)) {
            return 0;
        }
        const size_t stride = m_picture.step;
        // Rounded towards `from`, so that nothing is beyond `to`.
        const Place step{(to.x - from.x) / spanLength, (to.y - from.y) / spanLength};
        Place place = from;
        Words columns = fractionsOf(from.x, step.x);
        Words rows = fractionsOf(from.y, step.y);
        const Words columnStep = fractionsOf(2 * step.x, 0);
        const Words rowStep = fractionsOf(2 * step.y, 0);
        int i = 0;
        for (; i + 2 <= count; i += 2, target += 6) {
            const uchar *first = pixel(place);
            place = {place.x + step.x, place.y + step.y};
            const uchar *second = pixel(place);
            place = {place.x + step.x, place.y + step.y};
            const Words lower = rows >> (fractionBits - rowBits);
            const Words upper = (1 << rowBits) - lower;
            const Words right = columns >> (fractionBits - columnBits);
            rows += rowStep;
            columns += columnStep;
            // For the next row: without it a fifth of the time is spent waiting for memory.
            __builtin_prefetch(first + 2 * stride);
            // The bytes of two adjacent pixels: b g r b g r, and two that aren't needed.
            const Words above = pairsAt(first, second);
            const Words below = pairsAt(first + stride, second + stride);
            // 10 bits each, rounded down: b r g - and g b r -
            const Words even = ((above & 255) * upper + (below & 255) * lower) >> (rowBits - 2);
            const Words odd = ((above >> 8) * upper + (below >> 8) * lower) >> (rowBits - 2);
            // 16 bits: b r - - and g - - -
            constexpr uint16_t half = 128 + 28; // what rounding down took from 64 pixels, too
            const Words blueRed =
                (even << columnBits) + (Words(Pairs(odd) >> 16) - even) * right + half;
            const Words green =
                (odd << columnBits) + (Words(Pairs(even) >> 32) - odd) * right + half;
            const auto pixels = Pairs((blueRed >> 8) | (green & 0xff00));
            const uint64_t a = pixels[0];
            const uint64_t b = pixels[1];
            std::memcpy(target, &a, 4);
            std::memcpy(target + 3, &b, 4);
        }
        return i;
    }

    /// The pixel anywhere.
    cv::Vec3b pixelAt(const Place &place) const
    {
        const auto weightOf = [](int64_t coordinate, int bits) {
            return int(coordinate & ((1 << fractionBits) - 1)) >> (fractionBits - bits);
        };
        const auto x = int(place.x >> fractionBits);
        const auto y = int(place.y >> fractionBits);
        const int right = weightOf(place.x, columnBits);
        const int lower = weightOf(place.y, rowBits);
        const auto at = [this](int column, int row) -> cv::Vec3i {
            return m_picture.at<cv::Vec3b>(std::clamp(row, 0, m_picture.rows - 1),
                                           std::clamp(column, 0, m_picture.cols - 1));
        };
        const auto inRow = [&](int row) -> cv::Vec3i {
            return at(x, row) * ((1 << columnBits) - right) + at(x + 1, row) * right;
        };
        const cv::Vec3i sum = inRow(y) * ((1 << rowBits) - lower) + inRow(y + 1) * lower;
        return sum / (1 << (columnBits + rowBits));
    }

    const cv::Mat &m_picture;
    cv::Mat &m_result;
    cv::Matx33d m_back;
};

} // namespace

cv::Mat warpedPerspective(const cv::Mat &picture, const cv::Mat &transform, const cv::Size &size)
{
    cv::Mat result(size, CV_8UC3);
    PerspectiveWarp warp(picture, transform, result);
    inRanges({0, size.height}, [&](const cv::Range &rows) { warp.warpRows(rows); });
    return result;
}

} // namespace portable
