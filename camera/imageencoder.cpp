// SPDX-License-Identifier: MIT
#include "camera/imageencoder.h"

#include "camera/frameencoder.h"

#include <QCoreApplication>
#include <QDebug>
#include <QFile>
#include <dlfcn.h>
#include <opencv2/core.hpp>

#include <algorithm>
#include <cctype>

namespace {

/// Of imageencodermodule.cpp.
using Encode = bool (*)(const cv::Mat &matrix, const std::string &extension, int quality,
                        std::vector<unsigned char> *bytes, std::string *error);

Encode loadModule()
{
    const QString path =
        QCoreApplication::applicationDirPath() + QStringLiteral("/libimageencoder.so");
    void *module = dlopen(QFile::encodeName(path).constData(), RTLD_NOW | RTLD_LOCAL);
    void *function = module ? dlsym(module, "encodeImageByOpenCv") : nullptr;
    if (!function) {
        qInfo("still pictures are encoded by libjpeg: %s", dlerror());
    }
    return reinterpret_cast<Encode>(function);
}

bool isJpeg(std::string extension)
{
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return extension == "jpg" || extension == "jpeg";
}

QImage imageOf(const cv::Mat &matrix)
{
    const auto view = [&](QImage::Format format) {
        return QImage(matrix.data, matrix.cols, matrix.rows, int(matrix.step), format);
    };
    if (matrix.channels() == 1) {
        return view(QImage::Format_Grayscale8);
    }
#if QT_VERSION >= QT_VERSION_CHECK(5, 14, 0)
    return view(QImage::Format_BGR888);
#else
    return view(QImage::Format_RGB888).rgbSwapped();
#endif
}

} // namespace

std::vector<unsigned char> encodeImage(const cv::Mat &matrix, const std::string &extension,
                                       int quality)
{
    static const Encode encode = loadModule();
    if (!encode && isJpeg(extension)) {
        return encodeJpeg(matrix, quality);
    }
    std::vector<unsigned char> bytes;
    std::string error = "the module that encodes it is missing";
    if (!encode || !encode(matrix, extension, quality, &bytes, &error)) {
        qDebug() << error.c_str();
        bytes.clear();
    }
    return bytes;
}

std::vector<unsigned char> encodeJpeg(const cv::Mat &matrix, int quality)
{
    if (matrix.depth() != CV_8U || (matrix.channels() != 1 && matrix.channels() != 3)) {
        qDebug() << "a picture that is not 8-bit BGR or gray can't be encoded";
        return {};
    }
    return FrameEncoder::fileOf(imageOf(matrix), quality);
}
