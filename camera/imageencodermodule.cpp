// SPDX-License-Identifier: MIT
// A module of its own, for the libraries that imgcodecs brings; camera/imageencoder.cpp loads it.
#include <opencv2/imgcodecs.hpp>

extern "C" bool encodeImageByOpenCv(const cv::Mat &matrix, const std::string &extension,
                                    int quality, std::vector<unsigned char> *bytes,
                                    std::string *error)
{
    try {
        return cv::imencode("." + extension, matrix, *bytes, {cv::IMWRITE_JPEG_QUALITY, quality});
    } catch (const std::exception &exception) {
        *error = exception.what();
        return false;
    }
}
