// SPDX-License-Identifier: MIT
// The search for a page, on some of the pictures of bench_pagefinder and on plain drawings of what
// decides: sharp sides, colors, frames, corners.
#include "bench/pagecorpus/corpus.h"
#include "portable/picture/pagefinder.h"
#include "portable/picture/pagesearch/edges.h"
#include "tests/rows.h"

#include <QtTest>
#include <opencv2/imgproc.hpp>

using portable::findPage;
using portable::PageCorners;

Q_DECLARE_METATYPE(cv::Scalar)

namespace {

const cv::Scalar deskColor(120, 125, 130);
const PageCorners corners{cv::Point2f(520.3F, 180.6F), cv::Point2f(1450.4F, 240.2F),
                          cv::Point2f(1400.7F, 900.5F), cv::Point2f(470.1F, 830.8F)};

/// A four-sided patch of one color on a desk, its sides sharp and exact to a fraction of a pixel.
cv::Mat patch(const cv::Scalar &color)
{
    cv::Mat picture(1080, 1920, CV_8UC3, deskColor);
    const cv::Mat mask = pagecorpus::coverage(picture.size(), pagecorpus::Sheet(), corners);
    for (int y = 0; y < picture.rows; ++y) {
        for (int x = 0; x < picture.cols; ++x) {
            auto &pixel = picture.at<cv::Vec3b>(y, x);
            for (int i = 0; i < 3; ++i) {
                const double share = double(mask.at<float>(y, x));
                pixel[i] = cv::saturate_cast<uchar>(deskColor[i] * (1 - share) + color[i] * share);
            }
        }
    }
    return picture;
}

void blur(cv::Mat &picture, double sigma)
{
    cv::GaussianBlur(picture, picture, {}, sigma);
}

/// The largest distance of a corner from where it is, in pixels; far when there is no page.
double distance(const cv::Mat &picture)
{
    const auto found = findPage(picture);
    double largest = found ? 0 : 1e6;
    for (size_t i = 0; found && i < corners.size(); ++i) {
        largest = std::max(largest, cv::norm((*found)[i] - corners[i]));
    }
    return largest;
}

} // namespace

class TestPortablePages : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void photographs_data()
    {
        const Rows<QString, int> row("kind", "seed");
        for (const char *kind : {"wooden desk", "printed border", "white desk", "card",
                                 "hand on the page", "patterned desk", "empty: lamp",
                                 "empty: pattern", "empty: things", "empty: planks"}) {
            row(kind, kind, 7);
        }
        row("sides half hidden by a hand", "hand on the page", 8);
        row("a finger like a side", "everything at once", 17);
        row("a soft shadow around", "receipt", 502);
        row("window light, askew", "empty: window light", 4);
        row("a narrow board", "empty: planks", 9);
    }

    void photographs()
    {
        QFETCH(QString, kind);
        QFETCH(int, seed);
        const pagecorpus::Sample sample = pagecorpus::sample(kind.toStdString(), seed);
        const auto found = findPage(sample.picture);
        QCOMPARE(found.has_value(), !sample.pages.empty());
        const double error = found ? pagecorpus::error(sample, *found) : 0;
        QVERIFY2(error < 0.01, qPrintable(QString::number(error)));
    }

    void patches_data()
    {
        const Rows<cv::Scalar, double, double> row("color", "blur", "most");
        constexpr double none = 0;
        row("as a camera sees it", {235, 238, 240}, 1, 0.2);
        row("out of focus", {235, 238, 240}, 2.5, 1);
        row("the light of a window", {235, 238, 240}, 7, none);
        row("a lamp that is farther away", {235, 238, 240}, 60, none);
        row("darker", {60, 62, 65}, 1, 0.5);
        row("hardly brighter", {124, 129, 134}, 1, 1.5);
        row("as bright, of another color", {150, 119, 113}, 1, 1);
        row("the color of the desk", deskColor, 1, none);
    }

    void patches()
    {
        QFETCH(cv::Scalar, color);
        QFETCH(double, blur);
        QFETCH(double, most);
        cv::Mat picture = patch(color);
        ::blur(picture, blur);
        const double off = distance(picture);
        QVERIFY2(most > 0 ? off <= most : off == 1e6, qPrintable(QString::number(off)));
    }

    void whatIsOnThePageIsNone()
    {
        // A photo with a frame, far clearer than the sides of the paper, of which one is half
        // hidden.
        cv::Mat picture = patch({150, 155, 160});
        cv::rectangle(picture, {640, 330, 600, 380}, {20, 20, 20}, 9);
        cv::rectangle(picture, {700, 380, 480, 280}, {30, 160, 60}, cv::FILLED);
        cv::ellipse(picture, {980, 210}, {230, 60}, 4, 0, 360, {110, 140, 190}, cv::FILLED);
        blur(picture, 1);
        const double off = distance(picture);
        QVERIFY2(off < 10, qPrintable(QString::number(off)));
    }

    void cornersMayBeHidden()
    {
        cv::Mat picture = patch({235, 238, 240});
        cv::circle(picture, {1440, 890}, 150, {110, 140, 190}, cv::FILLED, cv::LINE_AA);
        cv::ellipse(picture, {500, 500}, {60, 150}, 0, 0, 360, {110, 140, 190}, cv::FILLED);
        blur(picture, 1);
        const double off = distance(picture);
        QVERIFY2(off < 2, qPrintable(QString::number(off)));
    }

    void sidesThatGoOnAreNoPage_data()
    {
        // stagger: of each row of tiles or boards
        const Rows<int, int> row("height", "stagger");
        row("tiles", 260, 0);
        row("boards", 200, 190);
    }

    void sidesThatGoOnAreNoPage()
    {
        QFETCH(int, height);
        QFETCH(int, stagger);
        cv::Mat picture(1080, 1920, CV_8UC3, deskColor);
        for (int i = -1; i < 5; ++i) {
            for (int j = 0; j < 6; ++j) {
                const int grey = i == 1 && j == 2 ? 200 : 90 + 10 * ((i + j) % 3);
                const cv::Rect board(i * 500 + j % 3 * stagger, j * height - 20, 494, height - 6);
                cv::rectangle(picture, board, cv::Scalar::all(grey), cv::FILLED);
            }
        }
        blur(picture, 1);
        QVERIFY(!findPage(picture));
    }

    void edgesOfATurnedPictureAreTurned()
    {
        // Of the size that isn't reduced, and of any width: four columns are looked at together,
        // and some rows by each thread.
        for (const int width : {601, 603}) {
            cv::Mat picture(403, width, CV_8UC3);
            cv::RNG(3).fill(picture, cv::RNG::UNIFORM, 0, 256);
            blur(picture, 1.5);
            for (int i = 0; i < 12; ++i) { // strips that differ in how strong their edges are
                cv::Mat strip = picture.rowRange(i * 33, i * 33 + 33);
                strip = strip / (1 + i % 4) + cv::Scalar::all(60);
            }
            const cv::Mat edges = portable::pagesearch::findEdges(picture).weight > 0;
            cv::Mat turned;
            cv::flip(picture, turned, -1);
            turned = portable::pagesearch::findEdges(turned).weight > 0;
            cv::flip(turned, turned, -1);
            const int different = cv::countNonZero(edges != turned);
            const int all = cv::countNonZero(edges);
            QVERIFY2(different < all / 5,
                     qPrintable(QStringLiteral("%1 of %2").arg(different).arg(all)));
            for (const int column : {1, 2, 3, width - 4, width - 3, width - 2}) {
                QVERIFY(cv::countNonZero(edges.col(column)) > 5);
            }
        }
    }

    void stripsAreNoPage()
    {
        cv::Mat picture(1080, 1920, CV_8UC3, deskColor);
        cv::line(picture, {300, 300}, {1500, 800}, {250, 250, 250}, 60); // a ruler
        const std::vector<cv::Point> slanting{{300, 100}, {700, 100}, {300, 500}, {-100, 500}};
        std::vector<cv::Point> moved(slanting);
        for (cv::Point &point : moved) {
            point += cv::Point(1100, 500);
        }
        cv::fillConvexPoly(picture, moved, {20, 30, 200}, cv::LINE_AA);
        blur(picture, 1);
        QVERIFY(!findPage(picture));
    }
};

QTEST_MAIN(TestPortablePages)
#include "tst_portablepages.moc"
