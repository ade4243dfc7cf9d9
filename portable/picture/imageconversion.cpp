// SPDX-License-Identifier: MIT
#include "portable/picture/imageconversion.h"

#include <QPainter>
#include <opencv2/imgproc.hpp>

namespace portable {

QImage toImage(const cv::Mat &bgr)
{
    const uchar *pixels = bgr.data; // const: writing to the image detaches it
#if QT_VERSION >= QT_VERSION_CHECK(5, 14, 0)
    return QImage(
        pixels, bgr.cols, bgr.rows, int(bgr.step), QImage::Format_BGR888,
        [](void *held) { delete static_cast<cv::Mat *>(held); }, new cv::Mat(bgr));
#else
    return QImage(pixels, bgr.cols, bgr.rows, int(bgr.step), QImage::Format_RGB888).rgbSwapped();
#endif
}

cv::Mat toMat(const QImage &image)
{
    QImage opaque = image.convertToFormat(QImage::Format_RGB32);
    if (opaque.isNull()) {
        return {};
    }
    if (image.hasAlphaChannel()) {
        opaque.fill(Qt::white);
        QPainter(&opaque).drawImage(0, 0, image);
    }
    const cv::Mat bgra(opaque.height(), opaque.width(), CV_8UC4, opaque.bits(),
                       size_t(opaque.bytesPerLine()));
    cv::Mat bgr;
    cv::cvtColor(bgra, bgr, cv::COLOR_BGRA2BGR);
    return bgr;
}

} // namespace portable
