// SPDX-License-Identifier: MIT
#include "portable/picture/perspectivewarp.h"

#include "portable/picture/parallel.h"
#include "portable/picture/vectors.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

namespace portable {

namespace {

// Pixels of the result, whose positions are interpolated linearly.
constexpr int longestSpan = 32;
constexpr int shortestSpan = 4;
constexpr int fractionBits = 16;
constexpr int rowBits = 15; // of the weights of two rows
constexpr int columnBits = 6; // of the weights of two columns
constexpr int half = 1 << (columnBits - 1); // rounds what two columns are added up to

/// A place in a picture, in 65536ths of a pixel.
struct Place
{
    int64_t x;
    int64_t y;
};

class PerspectiveWarp
{
public:
    PerspectiveWarp(const cv::Mat &picture, const cv::Mat &transform, cv::Mat &result)
        : m_picture(picture)
        , m_result(result)
        , m_back(cv::Mat(transform.inv()))
        , m_inVectors(hasByteVectors() && isSmall(picture))
    {
        constexpr double exact = 0.02; // pixels
        while (m_spanLength > shortestSpan && !(bend() <= exact)) {
            m_spanLength /= 2;
        }
    }

    void warpRows(const cv::Range &rows)
    {
        std::vector<Place> ends(size_t(m_result.cols / m_spanLength + 2));
        for (int y = rows.start; y < rows.end; ++y) {
            for (size_t i = 0; i < ends.size(); ++i) {
                ends[i] = placeOf(int(i) * m_spanLength, y);
            }
            for (int x = 0; x < m_result.cols; x += m_spanLength) {
                const size_t i = size_t(x / m_spanLength);
                const int most = std::min(m_spanLength, m_result.cols - 2 - x);
                const int done = x
                    + (m_inVectors ? warpSpan(m_result.ptr(y, x), ends[i], ends[i + 1], most) : 0);
                for (int rest = done; rest < std::min(x + m_spanLength, m_result.cols); ++rest) {
                    m_result.at<cv::Vec3b>(y, rest) = pixelAt(placeOf(rest, y));
                }
            }
        }
    }

private:
    /// True when places and the numbers of bytes in the picture have less than 32 bits.
    static bool isSmall(const cv::Mat &picture)
    {
        constexpr int most = 1 << (31 - fractionBits);
        return std::max(picture.cols, picture.rows) < most
            && double(picture.step) * picture.rows < std::numeric_limits<int>::max();
    }

    /// Where a pixel of the result is in the picture.
    cv::Point2d positionOf(double x, double y) const
    {
        const double scale = 1 / (m_back(2, 0) * x + m_back(2, 1) * y + m_back(2, 2));
        return {(m_back(0, 0) * x + m_back(0, 1) * y + m_back(0, 2)) * scale,
                (m_back(1, 0) * x + m_back(1, 1) * y + m_back(1, 2)) * scale};
    }

    /// How far the middle of a span is from where it is interpolated; most of it is at a corner.
    double bend() const
    {
        double most = 0;
        for (const int y : {0, m_result.rows}) {
            for (const int x : {0, m_result.cols - m_spanLength}) {
                const cv::Point2d ends = positionOf(x, y) + positionOf(x + m_spanLength, y);
                most = std::max(cv::norm(ends / 2 - positionOf(x + m_spanLength / 2.0, y)), most);
            }
        }
        return most;
    }

    /// The same, or next to the picture.
    Place placeOf(int x, int y) const
    {
        const cv::Point2d position = positionOf(x, y);
        return {fixed(position.x, m_picture.cols, columnBits),
                fixed(position.y, m_picture.rows, rowBits)};
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

    /**
     * Pixels from one place towards another, which is m_spanLength pixels away.
     * \param target  of 3 * count + 6 bytes
     * \return how many were written: none when a place isn't well inside the picture
     */
    BYTE_VECTORS int warpSpan(uchar *target, const Place &from, const Place &to, int count) const
    {
        if (!isInside(from) || !isInside(to)) {
            return 0;
        }
        // Rounded towards `from`, so that nothing is beyond `to`.
        const auto stepX = int((to.x - from.x) / m_spanLength);
        const auto stepY = int((to.y - from.y) / m_spanLength);
        const Numbers first{0, 1, 2, 3};
        Numbers x = first * stepX + int(from.x);
        Numbers y = first * stepY + int(from.y);
        const uchar *picture = m_picture.data;
        const auto stride = ptrdiff_t(m_picture.step);
        int i = 0;
        for (; i + 4 <= count; i += 4, target += 12) {
            const auto starts =
                startsOf((y >> fractionBits) * int(stride) + (x >> fractionBits) * 3);
            // Of the low word of each number. The bytes: the weights of the left and right pixels.
            const UnsignedWords columns =
                (UnsignedWords(x) >> (fractionBits - columnBits)) * 255 + (1 << columnBits);
            const UnsignedWords lower = UnsignedWords(y) >> (fractionBits - rowBits);
            x += 4 * stepX;
            y += 4 * stepY;
            // For the next row: without it a third of the time is spent waiting for memory.
            __builtin_prefetch(picture + starts[0] + 2 * stride);
            const Bytes firstTwo{0, 1, 0, 1, 0, 1, 0, 1, 4, 5, 4, 5, 4, 5, 4, 5};
            const Words a = pixelPair(picture + starts[0], picture + starts[1], stride,
                                      arranged(Bytes(columns), firstTwo),
                                      Words(arranged(Bytes(lower), firstTwo)));
            const Bytes lastTwo = firstTwo + 8;
            const Words b = pixelPair(picture + starts[2], picture + starts[3], stride,
                                      arranged(Bytes(columns), lastTwo),
                                      Words(arranged(Bytes(lower), lastTwo)));
            constexpr uint8_t none = 255;
            const Bytes order{0, 2, 4, 8, 10, 12, 1, 3, 5, 9, 11, 13, none, none, none, none};
            const Bytes pixels = arranged(Bytes(a | b << 8), order);
            std::memcpy(target, &pixels, sizeof pixels);
        }
        return i;
    }

    /// Taken out of the vector two at a time, which is faster than one by one.
    BYTE_VECTORS static std::array<uint32_t, 4> startsOf(const Numbers &numbers)
    {
        const auto pairs = LongNumbers(numbers);
        const uint64_t a = pairs[0];
        const uint64_t b = pairs[1];
        return {uint32_t(a), uint32_t(a >> 32), uint32_t(b), uint32_t(b >> 32)};
    }

    /// Two pixels of the result, a word for each byte: b g r - b g r -
    BYTE_VECTORS static Words pixelPair(const uchar *first, const uchar *second, ptrdiff_t stride,
                                        const Bytes &columns, const Words &rows)
    {
        const Words above = inRow(first, second, columns);
        const Words below = inRow(first + stride, second + stride, columns);
        const Words sum = above + shareOf(below - above, rows);
        return shareOf(sum, Words{} + (1 << (15 - columnBits)));
    }

    /// Two pixels, each from itself and the one to its right.
    BYTE_VECTORS static Words inRow(const uchar *first, const uchar *second, const Bytes &columns)
    {
        constexpr uint8_t none = 255;
        const Bytes order{0, 3, 1, 4, 2, 5, none, none, 8, 11, 9, 12, 10, 13, none, none};
        const LongNumbers bytes{eightBytesAt(first), eightBytesAt(second)};
        return weightedPairs(arranged(Bytes(bytes), order), columns);
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
        const cv::Vec3i above = inRow(y);
        const cv::Vec3i below = inRow(y + 1);
        cv::Vec3b result;
        for (int i = 0; i < 3; ++i) {
            const int share = ((below[i] - above[i]) * lower + (1 << (rowBits - 1))) >> rowBits;
            result[i] = uchar((above[i] + share + half) >> columnBits);
        }
        return result;
    }

    const cv::Mat &m_picture;
    cv::Mat &m_result;
    cv::Matx33d m_back;
    bool m_inVectors;
    int m_spanLength = longestSpan;
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
