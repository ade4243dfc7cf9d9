// SPDX-License-Identifier: MIT
/// \file Generated fingerprints for tests, so that the tree needs no prints of people.
#pragma once

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <vector>

/// How a finger touches the sensor.
struct Impression
{
    double turn = 0; ///< Degrees.
    cv::Point2f shift; ///< Pixels.
    double noise = 0; ///< Deviation, in gray levels.
    double pressure = 0; ///< -1 dry, thin ridges; 1 wet, thick ones.
};

/**
 * A finger, different for each number, of 300 x 380 pixels at 500 dpi: an orientation field with
 * core and delta (Sherlock and Monro's model), along which filters grow ridges out of noise, as in
 * Cappelli's generator.
 * \return -1 on ridges to 1 in valleys
 */
inline cv::Mat drawFinger(unsigned number)
{
    constexpr int width = 300;
    constexpr int height = 380;
    constexpr int directions = 18;
    constexpr int reach = 9;
    cv::RNG random(number * 7919U + 17U);
    const auto around = [&random](double middle, double range) {
        return middle + random.uniform(-range, range);
    };
    const double period = around(9, 0.6);
    std::vector<cv::Point2d> cores{{around(150, 20), around(150, 25)}};
    std::vector<cv::Point2d> deltas{{around(150, 110), around(320, 20)}};
    if (number % 3 == 0) { // a whorl
        cores.emplace_back(cores[0].x + around(0, 15), cores[0].y + around(45, 15));
        deltas.emplace_back(300 - deltas[0].x, around(320, 20));
    }
    const double lean = around(0, 0.25);

    // The filter for each pixel.
    cv::Mat nearest(height, width, CV_8U);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            double angle = lean + CV_PI / 2;
            for (const cv::Point2d &core : cores) {
                angle += 0.5 * std::atan2(y - core.y, x - core.x);
            }
            for (const cv::Point2d &delta : deltas) {
                angle -= 0.5 * std::atan2(y - delta.y, x - delta.x);
            }
            const double part = std::fmod(std::fmod(angle, CV_PI) + CV_PI, CV_PI) / CV_PI;
            nearest.at<uchar>(y, x) = uchar(cvRound(part * directions) % directions);
        }
    }
    std::vector<cv::Mat> filters;
    for (int direction = 0; direction < directions; ++direction) {
        const double angle = direction * CV_PI / directions;
        cv::Mat kernel(2 * reach + 1, 2 * reach + 1, CV_32F);
        for (int y = -reach; y <= reach; ++y) {
            for (int x = -reach; x <= reach; ++x) {
                const double across = y * std::cos(angle) - x * std::sin(angle);
                kernel.at<float>(y + reach, x + reach) =
                    float(std::exp(-(x * x + y * y) / (0.4 * period * period))
                          * std::cos(2 * CV_PI * across / period));
            }
        }
        kernel -= cv::mean(kernel);
        filters.push_back(kernel / cv::norm(kernel, cv::NORM_L1));
    }
    cv::Mat field(height, width, CV_32F);
    random.fill(field, cv::RNG::NORMAL, 0, 0.3);
    cv::Mat filtered;
    for (int round = 0; round < 9; ++round) {
        cv::Mat next(height, width, CV_32F);
        for (int direction = 0; direction < directions; ++direction) {
            cv::filter2D(field, filtered, CV_32F, filters[size_t(direction)]);
            filtered.copyTo(next, nearest == direction);
        }
        for (int i = 0; i < int(next.total()); ++i) { // saturates
            float &value = next.at<float>(i / width, i % width);
            value = std::tanh(6 * value);
        }
        field = next;
    }
    return field;
}

/// A picture of the finger as a sensor delivers it: 8-bit gray, dark ridges on white. `number`
/// seeds its noise.
inline cv::Mat pressFinger(const cv::Mat &finger, const Impression &impression = {},
                           unsigned number = 1)
{
    cv::RNG random(number * 104729U + 3U);
    cv::Mat move = cv::getRotationMatrix2D({150, 190}, impression.turn, 1);
    move.at<double>(0, 2) += double(impression.shift.x);
    move.at<double>(1, 2) += double(impression.shift.y);
    // Skin stretches a little, differently each time.
    cv::Mat bends(4, 4, CV_32FC2);
    random.fill(bends, cv::RNG::NORMAL, 0, impression.noise > 0 ? 1.5 : 0.0);
    cv::Mat bend;
    cv::resize(bends, bend, finger.size(), 0, 0, cv::INTER_CUBIC);
    cv::Mat places(finger.size(), CV_32FC2);
    for (int y = 0; y < finger.rows; ++y) {
        for (int x = 0; x < finger.cols; ++x) {
            places.at<cv::Vec2f>(y, x) = cv::Vec2f(float(x), float(y)) + bend.at<cv::Vec2f>(y, x);
        }
    }
    cv::Mat bent;
    cv::remap(finger, bent, places, {}, cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    cv::Mat area(finger.size(), CV_32F, cv::Scalar(0));
    cv::ellipse(area, {150, 195}, {128, 168}, 0, 0, 360, 1, cv::FILLED);
    cv::Mat turned;
    cv::Mat turnedArea;
    cv::warpAffine(bent, turned, move, finger.size());
    cv::warpAffine(area, turnedArea, move, finger.size());
    cv::GaussianBlur(turnedArea, turnedArea, {}, 4);
    cv::Mat ink = (0.55 + 0.35 * impression.pressure - turned) * 110; // positive on ridges
    cv::max(ink, 0, ink);
    cv::min(ink, 190, ink);
    cv::Mat picture = 245 - ink.mul(turnedArea);
    cv::Mat grain(picture.size(), CV_32F);
    random.fill(grain, cv::RNG::NORMAL, 0, impression.noise + 1e-6);
    picture += grain;
    cv::GaussianBlur(picture, picture, {3, 3}, 0.7);
    cv::Mat result;
    picture.convertTo(result, CV_8U);
    return result;
}
