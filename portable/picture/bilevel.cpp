// SPDX-License-Identifier: MIT
#include "portable/picture/bilevel.h"

#include <QtGlobal>
#include <opencv2/imgproc.hpp>

namespace portable {

namespace {

/// How bright the paper is, or would be, at each pixel of a grey picture.
cv::Mat paperAround(const cv::Mat &grey, int window)
{
    constexpr int reach = 4; // windows: a quarter of the picture's shorter side
    constexpr double maxShade = 0.3; // paper in a shadow is no darker, measured by the brightest
    cv::Mat paper;
    cv::resize(grey, paper, {qMax(1, grey.cols / window), qMax(1, grey.rows / window)}, 0, 0,
               cv::INTER_AREA);
    double brightest = 0;
    cv::minMaxLoc(paper, nullptr, &brightest);
    const cv::Size around(2 * reach + 1, 2 * reach + 1);
    cv::dilate(paper, paper, cv::getStructuringElement(cv::MORPH_ELLIPSE, around));
    cv::blur(paper, paper, around);
    paper = cv::max(paper, brightest * maxShade);
    cv::resize(paper, paper, grey.size(), 0, 0, cv::INTER_LINEAR);
    return paper;
}

} // namespace

cv::Mat greyOf(const cv::Mat &picture)
{
    if (picture.channels() == 1) {
        return picture;
    }
    cv::Mat grey;
    cv::cvtColor(picture, grey, cv::COLOR_BGR2GRAY);
    return grey;
}

cv::Mat bilevel(const cv::Mat &picture)
{
    // Wide enough that bold strokes and the blocks of barcodes don't turn hollow.
    const int window = qMax(31, qMin(picture.cols, picture.rows) / 16) | 1;
    constexpr double inkToSurroundings =
        0.85; // the noise of a camera and the grain of paper is less
    constexpr double blackToPaper = 0.3; // desks are lighter
    const cv::Mat grey = greyOf(picture);
    cv::Mat threshold;
    cv::boxFilter(grey, threshold, CV_8U, {window, window}, {-1, -1}, true, cv::BORDER_REPLICATE);
    threshold.convertTo(threshold, CV_8U, inkToSurroundings);
    // What is wider than the window has no paper around it: there the paper further off counts.
    cv::max(threshold, paperAround(grey, window) * blackToPaper, threshold);
    cv::Mat ink;
    cv::compare(grey, threshold, ink, cv::CMP_GE);
    return ink;
}

} // namespace portable
