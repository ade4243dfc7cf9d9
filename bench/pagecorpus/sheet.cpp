// SPDX-License-Identifier: MIT
#include "bench/pagecorpus/sheet.h"

#include "bench/pagecorpus/fields.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <string>

namespace pagecorpus {

namespace {

/// What is printed on a sheet of `canvas`'s size; `unit` is the height of a line of text.
struct Print
{
    cv::RNG &random;
    cv::Mat canvas; // 8UC3
    double unit;
    cv::Scalar ink{45, 40, 40};

    int width() const { return canvas.cols; }
    int height() const { return canvas.rows; }

    /// Words, or signs like Chinese ones, from `left` to at most `right`.
    void line(double left, double right, double baseline, double size)
    {
        static const char *const words[] = {"account", "of",   "the", "holder", "Receipt", "12.50",
                                            "total",   "bank", "to",  "No.",    "signed",  "2024",
                                            "branch",  "paid", "and", "service"};
        double x = left;
        while (x < right) {
            const std::string word = words[random.uniform(0, int(std::size(words)))];
            const double scale = size / 30;
            const int thickness = std::max(1, cvRound(size / 11));
            int below = 0;
            const cv::Size box =
                cv::getTextSize(word, cv::FONT_HERSHEY_SIMPLEX, scale, thickness, &below);
            if (x + box.width > right) {
                break;
            }
            cv::putText(canvas, word, {cvRound(x), cvRound(baseline)}, cv::FONT_HERSHEY_SIMPLEX,
                        scale, ink, thickness, cv::LINE_AA);
            x += box.width + 0.4 * size;
        }
    }

    void signs(double left, double right, double baseline, double size)
    {
        for (double x = left; x + size < right; x += size * 1.1) {
            const int strokes = random.uniform(4, 8);
            for (int i = 0; i < strokes; ++i) {
                const auto spot = [&](double from, double length) {
                    return cvRound(from + length * random.uniform(0.05, 0.95));
                };
                const bool level = happens(random, 0.5);
                const cv::Point from(spot(x, size), spot(baseline - size, size));
                const cv::Point to(level ? spot(x, size) : from.x,
                                   level ? from.y : spot(baseline - size, size));
                cv::line(canvas, from, to, ink, std::max(1, cvRound(size / 12)), cv::LINE_AA);
            }
        }
    }

    /// Lines of text in an area given in shares of the sheet.
    void paragraph(double left, double top, double right, double bottom, double size)
    {
        const bool chinese = happens(random, 0.4);
        for (double y = top * height() + size; y < bottom * height(); y += 1.7 * size) {
            const double end = (left + (right - left) * random.uniform(0.55, 1.0)) * width();
            if (chinese) {
                signs(left * width(), end, y, size);
            } else {
                line(left * width(), end, y, size);
            }
        }
    }

    cv::Rect area(double left, double top, double right, double bottom) const
    {
        return {cv::Point(cvRound(left * width()), cvRound(top * height())),
                cv::Point(cvRound(right * width()), cvRound(bottom * height()))};
    }

    void picture(const cv::Rect &where)
    {
        cv::Mat part = canvas(where & cv::Rect({}, canvas.size()));
        const cv::Vec3f first{between(random, 30, 230), between(random, 30, 230),
                              between(random, 30, 230)};
        cv::Mat layer(part.size(), CV_32FC3, cv::Scalar(first[0], first[1], first[2]));
        for (int i = 0; i < 3; ++i) {
            const cv::Vec3f next{between(random, 10, 240), between(random, 10, 240),
                                 between(random, 10, 240)};
            const float cell = float(part.cols) / between(random, 2, 6);
            cv::Mat share = noiseField(random, part.size(), {cell, cell}) * 1.5 + 0.3;
            share = cv::max(0.0, cv::min(1.0, share));
            paint(layer, share, next);
        }
        layer.convertTo(part, CV_8U);
    }

    void frame(double margin)
    {
        const cv::Rect rect =
            area(margin, margin * width() / height(), 1 - margin, 1 - margin * width() / height());
        cv::rectangle(canvas, rect, ink, std::max(1, cvRound(unit / random.uniform(3, 12))),
                      cv::LINE_AA);
    }

    void table(double top, double bottom)
    {
        const int rows = random.uniform(4, 12);
        const int columns = random.uniform(2, 6);
        const int thickness = std::max(1, cvRound(unit / 10));
        for (int i = 0; i <= rows; ++i) {
            const double y = top + (bottom - top) * i / rows;
            cv::line(canvas, area(0.1, y, 0.9, y).tl(), area(0.9, y, 0.9, y).tl(), ink, thickness);
            if (i < rows) {
                paragraph(0.12, y + 0.2 / height(), 0.5, y + 0.5 * (bottom - top) / rows,
                          0.8 * unit);
            }
        }
        for (int i = 0; i <= columns; ++i) {
            const double x = 0.1 + 0.8 * i / columns;
            cv::line(canvas, area(x, top, x, bottom).tl(), area(x, bottom, x, bottom).tl(), ink,
                     thickness);
        }
    }

    void receipt()
    {
        paragraph(0.2, 0.03, 0.8, 0.08, 1.4 * unit);
        for (double y = 0.12 * height(); y < 0.9 * height(); y += 1.8 * unit) {
            line(0.07 * width(), random.uniform(0.4, 0.6) * width(), y, unit);
            line(0.75 * width(), 0.95 * width(), y, unit);
        }
    }

    void card()
    {
        picture(area(0.66, 0.15, 0.94, 0.75));
        for (double y = 0.15; y < 0.75; y += 0.16) {
            paragraph(0.06, y, 0.6, y + 0.1, 0.09 * height());
        }
        line(0.2 * width(), 0.95 * width(), 0.92 * height(), 0.1 * height());
    }

    void book()
    {
        paragraph(0.05, 0.07, 0.45, 0.93, unit);
        paragraph(0.55, 0.07, 0.95, 0.93, unit);
        const int fold = width() / 2;
        const int reach = width() / 50;
        for (int x = fold - reach; x <= fold + reach; ++x) {
            canvas.col(x) *= 0.55 + 0.4 * std::abs(x - fold) / reach;
        }
    }

    void content(Content kind)
    {
        switch (kind) {
        case Content::Text:
            return paragraph(0.11, 0.09, 0.9, 0.92, unit);
        case Content::Letter:
            paragraph(0.12, 0.08, 0.5, 0.16, unit);
            paragraph(0.12, 0.28, 0.88, random.uniform(0.4, 0.7), unit);
            return;
        case Content::Form:
            paragraph(0.2, 0.05, 0.8, 0.09, 2 * unit);
            return table(0.14, random.uniform(0.5, 0.9));
        case Content::Framed:
            frame(random.uniform(0.02, 0.08));
            return paragraph(0.15, 0.14, 0.85, 0.85, 1.2 * unit);
        case Content::Photo:
            picture(area(0.1, 0.1, 0.9, 0.55));
            return paragraph(0.1, 0.6, 0.9, 0.9, unit);
        case Content::Receipt:
            return receipt();
        case Content::Card:
            return card();
        case Content::Book:
            return book();
        case Content::Blank:
            return;
        }
    }
};

/// The size of the sheet on which its content is drawn: a little finer than it is seen.
cv::Size canvasSize(const Corners &corners)
{
    const auto side = [&](size_t a, size_t b) {
        return std::max(20, cvRound(1.3 * cv::norm(corners[a] - corners[b])));
    };
    return {std::max(side(0, 1), side(2, 3)), std::max(side(1, 2), side(3, 0))};
}

cv::Mat drawn(cv::RNG &random, const cv::Size &size, const Sheet &sheet)
{
    const cv::Vec3f &paper = sheet.paper;
    Print print{random, cv::Mat(size, CV_8UC3, cv::Scalar(paper[0], paper[1], paper[2])),
                std::max(5.0, std::min(size.width, size.height) * random.uniform(0.016, 0.028))};
    if (paper[1] < 110) {
        print.ink = cv::Scalar(200, 205, 205);
    }
    if (sheet.content == Content::Receipt) {
        print.unit = std::min(size.width, size.height) * 0.06;
    }
    if (sheet.content == Content::Book) {
        print.unit = size.height * 0.02;
    }
    print.content(sheet.content);
    return print.canvas;
}

cv::Mat seen(const cv::Size &picture, const cv::Mat &canvas, const Corners &corners, int border)
{
    const float right = float(canvas.cols) - 0.5F;
    const float bottom = float(canvas.rows) - 0.5F;
    const Corners source{cv::Point2f(-0.5F, -0.5F), cv::Point2f(right, -0.5F),
                         cv::Point2f(right, bottom), cv::Point2f(-0.5F, bottom)};
    cv::Mat result;
    cv::warpPerspective(canvas, result, cv::getPerspectiveTransform(source.data(), corners.data()),
                        picture, cv::INTER_LINEAR, border);
    return result;
}

/// A rectangle at the origin, turned and tilted before a camera of usual focal length.
Corners tiltedRectangle(cv::RNG &random, const cv::Size2f &size, const Sheet &sheet)
{
    const auto angle = [&](double most) { return random.uniform(-most, most) * CV_PI / 180; };
    const double turn = angle(sheet.turn);
    const double tiltX = angle(sheet.tilt);
    const double tiltY = angle(sheet.tilt);
    const double distance = 2400;
    const cv::Point2f ends[] = {{-1, -1}, {1, -1}, {1, 1}, {-1, 1}};
    Corners corners;
    for (size_t i = 0; i < 4; ++i) {
        const double x = ends[i].x * size.width / 2;
        const double y = ends[i].y * size.height / 2;
        const double turnedX = x * std::cos(turn) - y * std::sin(turn);
        const double turnedY = x * std::sin(turn) + y * std::cos(turn);
        const double depth = distance + turnedX * std::sin(tiltX) + turnedY * std::sin(tiltY);
        corners[i] = {float(turnedX * std::cos(tiltX) * distance / depth),
                      float(turnedY * std::cos(tiltY) * distance / depth)};
    }
    return corners;
}

} // namespace

Corners place(cv::RNG &random, const cv::Size &picture, const Sheet &sheet)
{
    for (double shrink = 1;; shrink *= 0.96) {
        const double longer = shrink * random.uniform(sheet.least, sheet.most)
            * std::min(picture.width, picture.height);
        const bool upright = happens(random, 0.5);
        const double shorter = longer * std::min(sheet.ratio, 1 / sheet.ratio);
        const cv::Size2f size(float(upright ? shorter : longer), float(upright ? longer : shorter));
        Corners corners = tiltedRectangle(random, size, sheet);
        const cv::Rect2f box =
            cv::boundingRect(std::vector<cv::Point2f>(corners.begin(), corners.end()));
        const double margin = 0.012 * picture.width;
        const double roomX = picture.width - 2 * margin - box.width;
        const double roomY = picture.height - 2 * margin - box.height;
        if (roomX < 0 || roomY < 0) {
            continue;
        }
        cv::Point2f shift(float(margin + random.uniform(0.0, roomX + 1)) - box.x,
                          float(margin + random.uniform(0.0, roomY + 1)) - box.y);
        if (sheet.outside > 0) {
            const float part = float(sheet.outside);
            const bool isLeft = happens(random, 0.5);
            if (happens(random, 0.5)) {
                shift.x =
                    (isLeft ? -part * box.width : float(picture.width) - (1 - part) * box.width)
                    - box.x;
            } else {
                shift.y =
                    (isLeft ? -part * box.height : float(picture.height) - (1 - part) * box.height)
                    - box.y;
            }
        }
        for (cv::Point2f &corner : corners) {
            corner += shift;
        }
        return corners;
    }
}

cv::Mat coverage(const cv::Size &picture, const Sheet &sheet, const Corners &corners)
{
    const cv::Size size = canvasSize(corners);
    const int radius = cvRound(sheet.rounding * std::max(size.width, size.height));
    cv::Mat mask(size, CV_32F, cv::Scalar(radius == 0 ? 1 : 0));
    if (radius > 0) {
        mask(cv::Rect(radius, 0, size.width - 2 * radius, size.height)) = 1;
        mask(cv::Rect(0, radius, size.width, size.height - 2 * radius)) = 1;
        for (const int x : {radius, size.width - 1 - radius}) {
            for (const int y : {radius, size.height - 1 - radius}) {
                cv::circle(mask, {x, y}, radius, cv::Scalar(1), cv::FILLED, cv::LINE_8);
            }
        }
    }
    return seen(picture, mask, corners, cv::BORDER_CONSTANT);
}

cv::Mat printed(cv::RNG &random, const cv::Size &picture, const Sheet &sheet,
                const Corners &corners)
{
    const cv::Mat canvas = drawn(random, canvasSize(corners), sheet);
    cv::Mat result;
    seen(picture, canvas, corners, cv::BORDER_REPLICATE).convertTo(result, CV_32F);
    return result;
}

} // namespace pagecorpus
