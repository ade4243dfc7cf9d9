// SPDX-License-Identifier: MIT
#include "portable/picture/pagesearch/features.h"

#include "portable/picture/parallel.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace portable::pagesearch {

namespace {

constexpr double searchedSide = 640; // about that many pixels: the longer side of what is searched
constexpr float darkness = 10; // grey levels: differences in what is darker are mostly noise
constexpr float leastChange = 0.3F; // grey levels within a pixel; less may be rounding

/// The rows of a picture reduced: the sums of squares of `reduction` pixels.
class ReducedRows
{
public:
    ReducedRows(const cv::Mat &picture, int reduction)
        : m_picture(picture)
        , m_reduction(reduction)
        , m_columns(size_t(picture.cols / reduction * reduction) * 3)
        , m_squares(m_columns.size() - size_t(3) * size_t(reduction - 1))
    {
        m_planes.fill(std::vector<int>(size_t(picture.cols / reduction)));
    }

    /// \return blue, green and red; changed by the next call
    const std::array<std::vector<int>, 3> &row(int y)
    {
        addUp(m_columns, [&](int i) { return m_picture.ptr(y * m_reduction + i); });
        // What is between the squares is added too, which is faster than leaving it out.
        addUp(m_squares, [&](int i) { return m_columns.data() + ptrdiff_t(3) * i; });
        auto &[blue, green, red] = m_planes;
        const uint16_t *square = m_squares.data();
        for (size_t x = 0; x < blue.size(); ++x) {
            blue[x] = square[0];
            green[x] = square[1];
            red[x] = square[2];
            square += ptrdiff_t(3) * m_reduction;
        }
        return m_planes;
    }

private:
    /// Sums of as many rows as are reduced to one; of two at a time, for fewer writes.
    template <class RowOf> void addUp(std::vector<uint16_t> &rowSums, RowOf rowOf) const
    {
        uint16_t *__restrict sums = rowSums.data();
        std::copy(rowOf(0), rowOf(0) + rowSums.size(), sums);
        int i = 1;
        for (; i + 2 <= m_reduction; i += 2) {
            const auto *a = rowOf(i);
            const auto *b = rowOf(i + 1);
            for (size_t x = 0; x < rowSums.size(); ++x) {
                sums[x] = uint16_t(sums[x] + a[x] + b[x]);
            }
        }
        if (i < m_reduction) {
            const auto *a = rowOf(i);
            for (size_t x = 0; x < rowSums.size(); ++x) {
                sums[x] = uint16_t(sums[x] + a[x]);
            }
        }
    }

    const cv::Mat &m_picture;
    int m_reduction;
    std::vector<uint16_t> m_columns;
    std::vector<uint16_t> m_squares;
    std::array<std::vector<int>, 3> m_planes;
};

/// The features of some rows of the reduced picture, not yet smoothed.
Features sharpFeatures(const cv::Mat &picture, int reduction, const cv::Range &rows)
{
    Features features({picture.cols / reduction, rows.size()});
    const float share = 1 / float(reduction * reduction);
    ReducedRows reduced(picture, reduction);
    for (int y = 0; y < rows.size(); ++y) {
        const auto &sums = reduced.row(rows.start + y);
        // The compiler's vectors need to know that these aren't the same.
        const int *__restrict blue = sums[0].data();
        const int *__restrict green = sums[1].data();
        const int *__restrict red = sums[2].data();
        auto *__restrict light = features.colors[0].ptr<float>(y);
        auto *__restrict rounding = features.rounding.ptr<float>(y);
        auto *__restrict relativeRed = features.colors[1].ptr<float>(y);
        auto *__restrict relativeBlue = features.colors[2].ptr<float>(y);
        for (int x = 0; x < features.rounding.cols; ++x) {
            light[x] = float(blue[x] + 2 * green[x] + red[x]) * (share / 4) + darkness;
            const float scale = 1 / light[x];
            relativeRed[x] = float(red[x] - green[x]) * share * scale;
            relativeBlue[x] = float(blue[x] - green[x]) * share * scale;
            rounding[x] = leastChange * scale;
        }
    }
    cv::log(features.colors[0], features.colors[0]);
    return features;
}

} // namespace

int reductionOf(const cv::Size &size)
{
    constexpr int most = 16; // the sums of such squares have at most 16 bits
    return std::clamp(cvRound(std::max(size.width, size.height) / searchedSide), 1, most);
}

Features featuresOf(const cv::Mat &picture, int reduction)
{
    constexpr int reach = 2; // of the smoothing, in rows
    Features features({picture.cols / reduction, picture.rows / reduction});
    const cv::Range all(0, features.rounding.rows);
    inBands(all, [&](const cv::Range &rows) {
        const cv::Range around = cv::Range(rows.start - reach, rows.end + reach) & all;
        const cv::Range inner = rows - around.start;
        const Features sharp = sharpFeatures(picture, reduction, around);
        sharp.rounding.rowRange(inner).copyTo(features.rounding.rowRange(rows));
        for (size_t i = 0; i < sharp.colors.size(); ++i) {
            // Reads what is around the rows, too.
            cv::GaussianBlur(sharp.colors[i].rowRange(inner), features.colors[i].rowRange(rows),
                             {5, 5}, 1);
        }
    });
    return features;
}

} // namespace portable::pagesearch
