// SPDX-License-Identifier: MIT
#include "bench/pagecorpus/things.h"

#include "bench/pagecorpus/fields.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

namespace pagecorpus {

namespace {

cv::Mat emptyMask(const cv::Mat &picture)
{
    return cv::Mat::zeros(picture.size(), CV_8U);
}

/// A mask from 0 to 1, its outline slightly soft.
cv::Mat smooth(const cv::Mat &mask)
{
    cv::Mat result;
    mask.convertTo(result, CV_32F, 1 / 255.0);
    cv::GaussianBlur(result, result, {5, 5}, 0);
    return result;
}

void castShadow(cv::RNG &random, cv::Mat &picture, const cv::Mat &mask)
{
    const double reach = between(random, 6, 30);
    const cv::Matx23d move{1, 0, random.uniform(-reach, reach),
                           0, 1, random.uniform(-reach, reach)};
    cv::Mat moved;
    cv::warpAffine(mask, moved, move, mask.size());
    shade(picture,
          1 - between(random, 0.1, 0.4) * softened(moved, reach * random.uniform(0.2, 0.8)));
}

/// Lays something of one color on the picture; rounder at its edges than flat.
void lay(cv::RNG &random, cv::Mat &picture, const cv::Mat &shape, const cv::Vec3f &color)
{
    const cv::Mat mask = smooth(shape);
    castShadow(random, picture, mask);
    cv::Mat layer(picture.size(), CV_32FC3, cv::Scalar(color[0], color[1], color[2]));
    cv::Mat depth = softened(mask, 12);
    depth = 0.45 + 0.55 * depth + 0.05 * noiseField(random, picture.size(), {30, 30});
    shade(layer, depth);
    blend(picture, mask, layer);
}

cv::Vec3f anyColor(cv::RNG &random)
{
    return {between(random, 15, 220), between(random, 15, 220), between(random, 15, 220)};
}

cv::Point anywhere(cv::RNG &random, const cv::Mat &picture)
{
    return {random.uniform(0, picture.cols), random.uniform(0, picture.rows)};
}

cv::Point2f direction(double angle)
{
    return {float(std::cos(angle)), float(std::sin(angle))};
}

void layPen(cv::RNG &random, cv::Mat &picture)
{
    const cv::Point from = anywhere(random, picture);
    const cv::Point2f along = direction(random.uniform(0.0, 2 * CV_PI));
    const int length = random.uniform(200, 480);
    const cv::Point to = cv::Point(cv::Point2f(from) + along * float(length));
    cv::Mat mask = emptyMask(picture);
    cv::line(mask, from, to, cv::Scalar(255), random.uniform(14, 30));
    lay(random, picture, mask, anyColor(random));
}

void layMug(cv::RNG &random, cv::Mat &picture)
{
    const cv::Point center = anywhere(random, picture);
    const int radius = random.uniform(70, 180);
    cv::Mat mask = emptyMask(picture);
    cv::circle(mask, center, radius, cv::Scalar(255), cv::FILLED);
    lay(random, picture, mask, anyColor(random));
    cv::Mat inside = emptyMask(picture);
    cv::circle(inside, center, radius * 5 / 6, cv::Scalar(255), cv::FILLED);
    paint(picture, smooth(inside), anyColor(random) * 0.5F);
}

void layMouse(cv::RNG &random, cv::Mat &picture)
{
    cv::Mat mask = emptyMask(picture);
    cv::ellipse(mask, anywhere(random, picture), {random.uniform(90, 140), random.uniform(55, 80)},
                random.uniform(0, 360), 0, 360, cv::Scalar(255), cv::FILLED);
    lay(random, picture, mask, anyColor(random));
}

void layCable(cv::RNG &random, cv::Mat &picture)
{
    cv::Mat mask = emptyMask(picture);
    cv::Point2f point = anywhere(random, picture);
    double angle = random.uniform(0.0, 2 * CV_PI);
    for (int i = 0; i < 60; ++i) {
        angle += random.uniform(-0.25, 0.25);
        const cv::Point2f next = point + direction(angle) * 30;
        cv::line(mask, cv::Point(point), cv::Point(next), cv::Scalar(255), 9);
        point = next;
    }
    lay(random, picture, mask, anyColor(random) * 0.4F);
}

} // namespace

void layHand(cv::RNG &random, cv::Mat &picture, const cv::Point2f &tip)
{
    // From the bottom mostly, as a clerk's do.
    const cv::Point2f center(float(picture.cols) / 2, float(picture.rows) * 0.3F);
    const cv::Point2f outwards = tip - center;
    const double angle = std::atan2(outwards.y, outwards.x) + random.uniform(-0.4, 0.4);
    const float size = between(random, 0.8, 1.3) * float(picture.cols) / 1920;
    const cv::Point2f along = direction(angle);
    const cv::Point2f across(-along.y, along.x);
    const cv::Point2f palm = tip + along * (230 * size);
    cv::Mat mask = emptyMask(picture);
    const auto line = [&](const cv::Point2f &from, const cv::Point2f &to, float width) {
        cv::line(mask, cv::Point(from), cv::Point(to), cv::Scalar(255), std::max(1, cvRound(width)),
                 cv::LINE_8);
    };
    const float spread = between(random, 0.6, 1.5);
    for (int finger = 0; finger < 4; ++finger) {
        const float offset = float(finger) - 1.5F;
        const cv::Point2f root = palm + across * (offset * 45 * size);
        const float reach = (finger == 1 || finger == 2 ? 1.0F : 0.82F) * 230 * size;
        line(root, root - along * reach + across * (offset * 24 * spread * size), 44 * size);
    }
    const float thumb = happens(random, 0.5) ? 1.0F : -1.0F;
    line(palm + across * (thumb * 50 * size),
         palm + across * (thumb * 190 * size) - along * (60 * size), 50 * size);
    cv::circle(mask, cv::Point(palm + along * (50 * size)), cvRound(105 * size), cv::Scalar(255),
               cv::FILLED);
    const float tan = between(random, 0.5, 1.0);
    cv::Mat sleeve = emptyMask(picture);
    cv::line(sleeve, cv::Point(palm + along * (190 * size)), cv::Point(palm + along * 3000),
             cv::Scalar(255), cvRound(210 * size));
    line(palm, palm + along * (300 * size), 150 * size);
    lay(random, picture, mask, cv::Vec3f(150, 175, 225) * tan);
    lay(random, picture, sleeve, anyColor(random));
}

void layKeyboard(cv::RNG &random, cv::Mat &picture)
{
    const cv::Point2f middle = anywhere(random, picture);
    const cv::Point2f along = direction(random.uniform(0.0, 2 * CV_PI));
    const cv::Point2f across(-along.y, along.x);
    const float key = between(random, 42, 70);
    const auto patch = [&](float left, float top, float width, float height) {
        const auto at = [&](float x, float y) {
            return cv::Point(middle + along * ((x - 8) * key) + across * ((y - 3) * key));
        };
        cv::Mat mask = emptyMask(picture);
        cv::fillConvexPoly(mask,
                           std::vector<cv::Point>{at(left, top), at(left + width, top),
                                                  at(left + width, top + height),
                                                  at(left, top + height)},
                           cv::Scalar(255));
        return mask;
    };
    const cv::Vec3f color = anyColor(random);
    lay(random, picture, patch(0, 0, 16, 6), color);
    cv::Mat keys = emptyMask(picture);
    for (int row = 0; row < 5; ++row) {
        for (int column = 0; column < 15; ++column) {
            keys |= patch(0.5F + float(column), 0.5F + float(row), 0.85F, 0.85F);
        }
    }
    paint(picture, smooth(keys), color * between(random, 0.5, 1.4));
}

void layThing(cv::RNG &random, cv::Mat &picture)
{
    switch (random.uniform(0, 4)) {
    case 0:
        return layPen(random, picture);
    case 1:
        return layMug(random, picture);
    case 2:
        return layMouse(random, picture);
    default:
        return layCable(random, picture);
    }
}

} // namespace pagecorpus
