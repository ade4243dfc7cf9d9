// SPDX-License-Identifier: MIT
#include "portable/barcodeworker/search.h"

#include "portable/barcodeworker/zbar.h"
#include "portable/barcodeworker/zxing.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <optional>
#include <set>
#include <utility>
#include <vector>

namespace portable {

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t maxCodes = 32;
constexpr int maxRepeats = 8; // in a row, of a code that painting over doesn't remove

/// The kinds of sGetBarCodeEx; nothing for any other number.
BarcodeFormats formatsOf(int kind)
{
    using namespace barcode;
    constexpr BarcodeFormats kinds[] = {
        any,    qr | microQr, dataMatrix, pdf417, code128,   code39, ean13 | ean8 | upcA | upcE,
        code93, codabar,      itf,        aztec,  allDataBar};
    return kind >= 0 && kind < int(std::size(kinds)) ? kinds[kind] : 0;
}

bool isLinear(const ReadCode &code)
{
    return (code.found.format & barcode::linear) != 0;
}

/// The scan line on which a linear code was read.
std::pair<cv::Point, cv::Point> scanLineOf(const ReadCode &code)
{
    return {(code.corners[0] + code.corners[3]) / 2, (code.corners[1] + code.corners[2]) / 2};
}

/**
 * Paints the code over. The height of a linear one is unknown: a band around its scan line is
 * painted, a higher one each time the code is read again.
 */
void erase(cv::Mat &grey, const ReadCode &code, int repeats)
{
    const cv::Scalar paper(255);
    if (isLinear(code)) {
        const auto [start, end] = scanLineOf(code);
        const int height = std::max(8, int(cv::norm(end - start) / 5));
        cv::line(grey, start, end, paper, height * (repeats + 1));
        return;
    }
    const std::vector<cv::Point> corners(code.corners.begin(), code.corners.end());
    cv::fillConvexPoly(grey, corners, paper);
    cv::polylines(grey, corners, true, paper, 5); // the frayed edge
}

/// The angle reduced to -45 to 45, as quarter turns make no difference.
double withinEighthTurn(double degrees)
{
    return degrees - 90 * std::round(degrees / 90);
}

/// The rotation of the code in degrees, clockwise, from -45 to 45.
double tiltOf(const cv::Mat &grey, const ReadCode &code)
{
    if (!isLinear(code)) {
        const cv::Point top = code.corners[1] - code.corners[0];
        return withinEighthTurn(std::atan2(top.y, top.x) * 180 / CV_PI);
    }
    // The scan line may cross the bars at an angle; the gradients along it are at right angles to
    // them.
    const auto [start, end] = scanLineOf(code);
    cv::Rect line(start, end);
    line = cv::Rect(line.tl() - cv::Point(3, 3), line.br() + cv::Point(4, 4))
        & cv::Rect(cv::Point(), grey.size());
    if (line.empty()) {
        return 0;
    }
    cv::Mat x;
    cv::Mat y;
    cv::Sobel(grey(line), x, CV_32F, 1, 0);
    cv::Sobel(grey(line), y, CV_32F, 0, 1);
    return withinEighthTurn(std::atan2(2 * x.dot(y), x.dot(x) - y.dot(y)) / 2 * 180 / CV_PI);
}

/// The whole picture rotated counterclockwise, on white.
cv::Mat turnedBy(double degrees, const cv::Mat &grey)
{
    const cv::Point2f middle(float(grey.cols - 1) / 2, float(grey.rows - 1) / 2);
    const cv::Rect2f bounds =
        cv::RotatedRect(cv::Point2f(), grey.size(), float(degrees)).boundingRect2f();
    cv::Mat turn = cv::getRotationMatrix2D(middle, degrees, 1);
    turn.at<double>(0, 2) += double(bounds.width - 1) / 2 - double(middle.x);
    turn.at<double>(1, 2) += double(bounds.height - 1) / 2 - double(middle.y);
    cv::Mat turned;
    cv::warpAffine(grey, turned, turn, bounds.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT, 255);
    return turned;
}

/// With the edges that a lens out of focus has lost, as far as bars of three pixels need it.
cv::Mat sharpened(const cv::Mat &grey)
{
    cv::Mat blurred;
    cv::GaussianBlur(grey, blurred, cv::Size(), 3);
    cv::addWeighted(grey, 3, blurred, -2, 0, blurred);
    return blurred;
}

cv::Mat reduced(const cv::Mat &grey, double scale)
{
    const cv::Size size(std::max(1, int(grey.cols * scale)), std::max(1, int(grey.rows * scale)));
    cv::Mat smaller;
    cv::resize(grey, smaller, size, 0, 0, cv::INTER_AREA);
    return smaller;
}

/// `grey` itself, or a smaller copy within these limits.
cv::Mat limited(const cv::Mat &grey, double maxPixels, double maxSide)
{
    const double scale = std::min(std::sqrt(maxPixels / double(grey.total())),
                                  maxSide / std::max(grey.cols, grey.rows));
    return scale < 1 ? reduced(grey, scale) : grey;
}

/**
 * Where a square code may be: separate patches that are about as wide as high, unlike lines of
 * text. The largest come first, and not too many.
 */
std::vector<cv::Rect> squarePatches(const cv::Mat &grey)
{
    constexpr size_t maxPatches = 40;
    constexpr int smallest = 10; // pixels in the reduced picture
    const double scale = std::min(1.0, 800.0 / std::max(grey.cols, grey.rows));
    cv::Mat small = reduced(grey, scale);
    cv::morphologyEx(small, small, cv::MORPH_GRADIENT, cv::Mat());
    cv::threshold(small, small, 0, 255, cv::THRESH_BINARY | cv::THRESH_OTSU);
    cv::Mat labels;
    cv::Mat table;
    cv::Mat centres;
    const int count = cv::connectedComponentsWithStats(small, labels, table, centres);
    std::vector<cv::Rect> patches;
    for (int i = 1; i < count; ++i) { // 0 is the background
        const int *row = table.ptr<int>(i);
        const cv::Rect box(row[cv::CC_STAT_LEFT], row[cv::CC_STAT_TOP], row[cv::CC_STAT_WIDTH],
                           row[cv::CC_STAT_HEIGHT]);
        const auto [shorter, longer] = std::minmax(box.width, box.height);
        if (shorter < smallest || longer > 3 * shorter) { // a Data Matrix may be 2.7 times as wide
            continue;
        }
        const int margin = longer / 10 + 3;
        const cv::Rect2d wide(box.x - margin, box.y - margin, box.width + 2 * margin,
                              box.height + 2 * margin);
        patches.push_back(cv::Rect(cv::Rect2d(wide.x / scale, wide.y / scale, wide.width / scale,
                                              wide.height / scale))
                          & cv::Rect(cv::Point(), grey.size()));
    }
    std::sort(patches.begin(), patches.end(),
              [](const cv::Rect &a, const cv::Rect &b) { return a.area() > b.area(); });
    patches.resize(std::min(patches.size(), maxPatches));
    return patches;
}

/// A search for the codes in one picture.
class Search
{
public:
    Search(BarcodeFormats formats, Clock::time_point end,
           const std::function<void(const FoundBarcode &)> &report)
        : m_formats(formats)
        , m_end(end)
        , m_report(report)
    {
    }

    void lookFromAllSides(const cv::Mat &grey);

    bool isLate() const { return m_isLate; }

private:
    /// One pass: reads all codes that can be read without rotating the picture. Paints on it.
    void look(cv::Mat grey)
    {
        read(grey, m_formats);
        // ZXing looks for these only around the center of a picture.
        const BarcodeFormats central = m_formats & (barcode::dataMatrix | barcode::aztec);
        if (central != 0) {
            for (const cv::Rect &patch : squarePatches(grey)) {
                read(grey(patch), central);
            }
        }
    }

    /**
     * Reads one code at a time, painting over what was read: ZXing's function for several aborts
     * the process on ordinary linear codes.
     */
    void read(cv::Mat grey, BarcodeFormats formats)
    {
        int repeats = 0;
        while (m_found.size() < maxCodes && repeats <= maxRepeats && isInTime()) {
            const std::optional<ReadCode> code = readWithZxing(grey, formats);
            if (!code) {
                return;
            }
            repeats = add(grey, *code) ? 0 : repeats + 1;
            erase(grey, *code, repeats);
        }
    }

    /// For linear codes that are too blurred for ZXing.
    void lookWithZbar(const cv::Mat &grey)
    {
        const auto isLinearFormat = [](const auto &code) {
            return (code.first & barcode::linear) != 0;
        };
        if (std::any_of(m_found.begin(), m_found.end(), isLinearFormat) || !isInTime()) {
            return;
        }
        auto codes = readWithZbar(grey, m_formats);
        if (codes.empty() && isInTime()) {
            codes = readWithZbar(sharpened(grey), m_formats);
        }
        for (const FoundBarcode &code : codes) {
            if (m_found.size() < maxCodes && m_found.emplace(code.format, code.text).second) {
                m_report(code);
            }
        }
    }

    /// \return false for a code that was found before
    bool add(const cv::Mat &grey, const ReadCode &code)
    {
        if (!m_found.emplace(code.found.format, code.found.text).second) {
            return false;
        }
        if (m_found.size() == 1) {
            m_tilt = tiltOf(grey, code);
        }
        m_report(code.found);
        return true;
    }

    bool isInTime()
    {
        m_isLate = m_isLate || Clock::now() >= m_end;
        return !m_isLate;
    }

    const BarcodeFormats m_formats;
    const Clock::time_point m_end;
    const std::function<void(const FoundBarcode &)> &m_report;
    bool m_isLate = false;
    std::set<std::pair<BarcodeFormats, std::string>> m_found;
    double m_tilt = 0; // of the first code, in the picture it was found in
};

void Search::lookFromAllSides(const cv::Mat &grey)
{
    // Readable rotations: PDF417 5 to 10 degrees, linear codes 10 to 30, QR codes 45.
    constexpr double otherAngles[] = {15, -15, 30, -30, 45};
    constexpr double significantTilt = 3;

    look(grey.clone());
    // Rotated passes are several and have more pixels: a long strip becomes a large square.
    const cv::Mat toTurn = limited(grey, 4e6, 3000);
    double angle = 0;
    for (const double other : otherAngles) {
        if (m_found.empty()) {
            angle = other;
            look(turnedBy(angle, toTurn));
        }
    }
    // Other codes of the same tilt, which can't be read at it.
    if (!m_found.empty() && std::abs(m_tilt) > significantTilt) {
        look(turnedBy(angle + m_tilt, toTurn));
    }
    lookWithZbar(grey); // last: what it finds says nothing about the tilt of the others
}

} // namespace

bool searchBarcodes(const cv::Mat &grey, int kind, bool withDataBar, Clock::time_point end,
                    const std::function<void(const FoundBarcode &)> &report)
{
    BarcodeFormats formats = formatsOf(kind);
    if (!withDataBar) {
        formats &= ~barcode::allDataBar;
    }
    if (formats == 0) { // which ZXing would take for all of them
        return true;
    }
    Search search(formats, end, report);
    // Codes are read at 200 dpi and less: an A4 page of 600 dpi has 35 million pixels.
    search.lookFromAllSides(limited(grey, 36e6, 10000));
    return !search.isLate();
}

} // namespace portable
