// SPDX-License-Identifier: MIT
#include "portable/document/mergedimage.h"

#include "portable/base/atomicfile.h"
#include "portable/base/failure.h"
#include "portable/document/pageimage.h"
#include "portable/picture/jpegfile.h"

#include <QDebug>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

namespace portable {

namespace {

constexpr int bytesPerPixel = 3;

/// Where the pictures are placed in the result.
struct Layout
{
    double scale = 1;
    cv::Size size;
    std::vector<cv::Rect> places; ///< One for each picture, none empty.
};

double limit(qint64 given)
{
    return given > 0 ? double(std::min<qint64>(given, largestJpegSide)) : largestJpegSide;
}

/// \return false when there are so many pictures that some would vanish
bool layOut(const std::vector<PageSpool::Entry> &pages, const MergePlan &plan, Layout *layout)
{
    // The unscaled size of the whole, along the direction and across it.
    double along = plan.gap * double(pages.size() - 1);
    double across = 0;
    const auto turn = [&plan](cv::Size size) {
        return plan.sideBySide ? size : cv::Size(size.height, size.width);
    };
    for (const PageSpool::Entry &entry : pages) {
        const cv::Size size = turn(entry.page.size);
        along += size.width;
        across = std::max<double>(across, size.height);
    }
    const double maxAlong = limit(plan.sideBySide ? plan.maxWidth : plan.maxHeight);
    const double maxAcross = limit(plan.sideBySide ? plan.maxHeight : plan.maxWidth);
    layout->scale = std::min({1.0, maxAlong / along, maxAcross / across});

    // Edges are rounded, not sizes, so that adjacent pictures stay adjacent.
    double position = 0;
    cv::Size total;
    for (const PageSpool::Entry &entry : pages) {
        const cv::Size size = turn(entry.page.size);
        const int start = int(std::lround(position * layout->scale));
        position += size.width;
        const int end = int(std::lround(position * layout->scale));
        const int height = std::max(1, int(std::lround(size.height * layout->scale)));
        position += plan.gap;
        if (end == start) {
            return false;
        }
        layout->places.push_back(plan.sideBySide ? cv::Rect(start, 0, end - start, height)
                                                 : cv::Rect(0, start, height, end - start));
        total = cv::Size(end, std::max(total.height, height));
    }
    layout->size = turn(total);
    return true;
}

cv::Mat pixelsOf(const PageSpool &pages, const PageSpool::Entry &entry, QString *error)
{
    cv::Mat pixels(entry.page.size, CV_8UC3);
    const bool ok =
        pages.read(entry, 0, entry.length, reinterpret_cast<char *>(pixels.data), error);
    return ok ? pixels : cv::Mat();
}

/// The pages scaled to their places.
bool scalePages(const PageSpool &pages, const Layout &layout, PageSpool *scaled, QString *error)
{
    for (std::size_t i = 0; i < layout.places.size(); ++i) {
        const cv::Mat pixels = pixelsOf(pages, pages.pages()[i], error);
        if (pixels.empty()) {
            return false;
        }
        cv::Mat smaller;
        cv::resize(pixels, smaller, layout.places[i].size(), 0, 0, cv::INTER_AREA);
        if (!scaled->insert(i, bgrPage(smaller, {}), error)) {
            return false;
        }
    }
    return true;
}

/// The rows of the result, from pages of the sizes of their places.
RowSource rowsOf(const PageSpool &pages, const Layout &layout)
{
    const auto row =
        std::make_shared<std::vector<uchar>>(std::size_t(layout.size.width) * bytesPerPixel);
    return [&pages, &layout, row](int y, QString *error) -> const uchar * {
        std::fill(row->begin(), row->end(), uchar(255));
        for (std::size_t i = 0; i < layout.places.size(); ++i) {
            const cv::Rect &place = layout.places[i];
            if (y < place.y || y >= place.y + place.height) {
                continue;
            }
            const qint64 length = qint64(place.width) * bytesPerPixel;
            uchar *target = row->data() + qptrdiff(place.x) * bytesPerPixel;
            if (!pages.read(pages.pages()[i], (y - place.y) * length, length,
                            reinterpret_cast<char *>(target), error)) {
                return nullptr;
            }
        }
        return row->data();
    };
}

Dpi scaledDpi(Dpi dpi, double scale)
{
    return {std::max(1, qRound(dpi.x * scale)), std::max(1, qRound(dpi.y * scale))};
}

QByteArray merged(const PageSpool &pages, const MergePlan &plan, int quality, QString *error)
{
    Layout layout;
    if (!layOut(pages.pages(), plan, &layout)) {
        *error = QStringLiteral("%1 pictures are too many for one").arg(pages.pages().size());
        return {};
    }
    PageSpool scaled;
    const bool fits = layout.scale >= 1;
    if (!fits && !scalePages(pages, layout, &scaled, error)) {
        return {};
    }
    if (!fits) {
        qInfo("portable: %zu pictures are merged at %.0f %% of their size, to fit into %d x %d "
              "pixels",
              layout.places.size(), layout.scale * 100, layout.size.width, layout.size.height);
    }
    const Dpi dpi = scaledDpi(pages.pages().front().page.dpi, layout.scale);
    return jpegOfRows(layout.size, Pixels::Bgr, quality, dpi, rowsOf(fits ? pages : scaled, layout),
                      error);
}

} // namespace

bool readMergePlan(short direction, short gap, qint64 maxWidth, qint64 maxHeight, MergePlan *plan,
                   QString *error)
{
    constexpr short maxGap = 1000;
    if (direction != 0 && direction != 1) {
        *error = QStringLiteral("there is no direction %1").arg(direction);
    } else if (gap < 0 || gap > maxGap) {
        *error = QStringLiteral("a gap of %1 pixels is not from 0 to %2").arg(gap).arg(maxGap);
    } else if (maxWidth < 0 || maxHeight < 0) {
        *error = QStringLiteral("a largest size of %1 x %2 pixels").arg(maxWidth).arg(maxHeight);
    } else {
        *plan = {direction == 1, gap, maxWidth, maxHeight};
        return true;
    }
    return false;
}

bool writeMergedImage(const PageSpool &pages, const MergePlan &plan, int quality,
                      const QString &path, QString *error)
{
    const QByteArray file = merged(pages, plan, quality, error);
    if (file.isEmpty()) {
        return prefixError(path, error);
    }
    return writeWholeFile(path, file, error, Reserve::MayUse);
}

} // namespace portable
