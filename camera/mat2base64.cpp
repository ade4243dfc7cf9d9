// SPDX-License-Identifier: MIT
#include "camera/mat2base64.h"

#include "dispatch/base64.h"

#include <QDebug>
#include <opencv2/imgcodecs.hpp>

#include <vector>

std::string Mat2Base64(const cv::Mat &matrix, const std::string &extension)
{
    if (matrix.empty()) {
        return {};
    }
    try {
        std::vector<unsigned char> bytes;
        cv::imencode("." + extension, matrix, bytes, {cv::IMWRITE_JPEG_QUALITY, 70});
        return base64_encode(bytes.data(), ulong(bytes.size()), false);
    } catch (const cv::Exception &exception) {
        qDebug() << exception.what();
        return {};
    }
}
