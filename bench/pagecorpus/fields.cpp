// SPDX-License-Identifier: MIT
#include "bench/pagecorpus/fields.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>

namespace pagecorpus {

cv::Mat noiseField(cv::RNG &random, const cv::Size &size, const cv::Size2f &cell)
{
    const auto count = [](int length, float each) {
        return std::clamp(int(float(length) / each) + 3, 3, length);
    };
    cv::Mat coarse(count(size.height, cell.height), count(size.width, cell.width), CV_32F);
    random.fill(coarse, cv::RNG::UNIFORM, -1, 1);
    cv::Mat field;
    cv::resize(coarse, field, size, 0, 0, cv::INTER_CUBIC);
    return field;
}

cv::Mat softened(const cv::Mat &mask, double sigma)
{
    const int shrink = std::clamp(int(sigma / 2), 1, 16);
    cv::Mat small;
    cv::resize(mask, small, {mask.cols / shrink, mask.rows / shrink}, 0, 0, cv::INTER_AREA);
    cv::GaussianBlur(small, small, {}, sigma / shrink, 0, cv::BORDER_REPLICATE);
    cv::Mat result;
    cv::resize(small, result, mask.size(), 0, 0, cv::INTER_LINEAR);
    return result;
}

void blend(cv::Mat &picture, const cv::Mat &mask, const cv::Mat &layer)
{
    for (int y = 0; y < picture.rows; ++y) {
        auto *line = picture.ptr<cv::Vec3f>(y);
        const auto *over = layer.ptr<cv::Vec3f>(y);
        const auto *share = mask.ptr<float>(y);
        for (int x = 0; x < picture.cols; ++x) {
            if (share[x] > 0) {
                line[x] += share[x] * (over[x] - line[x]);
            }
        }
    }
}

void paint(cv::Mat &picture, const cv::Mat &mask, const cv::Vec3f &color)
{
    for (int y = 0; y < picture.rows; ++y) {
        auto *line = picture.ptr<cv::Vec3f>(y);
        const auto *share = mask.ptr<float>(y);
        for (int x = 0; x < picture.cols; ++x) {
            line[x] += share[x] * (color - line[x]);
        }
    }
}

void shade(cv::Mat &picture, const cv::Mat &field)
{
    for (int y = 0; y < picture.rows; ++y) {
        auto *line = picture.ptr<cv::Vec3f>(y);
        const auto *factor = field.ptr<float>(y);
        for (int x = 0; x < picture.cols; ++x) {
            line[x] *= factor[x];
        }
    }
}

} // namespace pagecorpus
