// SPDX-License-Identifier: MIT
#include "camera/mat2base64.h"

#include "camera/imageencoder.h"
#include "dispatch/base64.h"

#include <opencv2/core.hpp>

#include <algorithm>

cv::Mat nearestScaled(const cv::Mat &matrix, int width, int height)
{
    // Its very arithmetic: rounding decides on some of the pixels.
    const auto nearest = [](int at, int size, int of) {
        const double step = 1 / (double(size) / of);
        return std::min(int(at * step), of - 1);
    };
    const std::size_t bytes = matrix.elemSize();
    cv::Mat scaled(height, width, matrix.type());
    for (int y = 0; y < height; ++y) {
        const uchar *from = matrix.ptr(nearest(y, height, matrix.rows));
        uchar *to = scaled.ptr(y);
        for (int x = 0; x < width; ++x, to += bytes) {
            const std::size_t column = std::size_t(nearest(x, width, matrix.cols));
            std::copy_n(from + column * bytes, bytes, to);
        }
    }
    return scaled;
}

std::string Mat2Base64(const cv::Mat &matrix, const std::string &extension)
{
    constexpr int quality = 70;
    if (matrix.empty()) {
        return {};
    }
    const auto bytes = encodeImage(matrix, extension, quality);
    return base64_encode(bytes.data(), ulong(bytes.size()), false);
}
