// SPDX-License-Identifier: MIT
#include "camera/mat2base64.h"

#include "camera/imageencoder.h"
#include "dispatch/base64.h"

#include <opencv2/core.hpp>

std::string Mat2Base64(const cv::Mat &matrix, const std::string &extension)
{
    constexpr int quality = 70;
    if (matrix.empty()) {
        return {};
    }
    const auto bytes = encodeImage(matrix, extension, quality);
    return base64_encode(bytes.data(), ulong(bytes.size()), false);
}
