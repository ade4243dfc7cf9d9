// SPDX-License-Identifier: MIT
#include "portable/picture/picturefile.h"

#include "portable/base/atomicfile.h"
#include "portable/picture/imageconversion.h"
#include "portable/picture/jpegfile.h"
#include "portable/picture/tiff.h"

#include <QBuffer>
#include <QImage>
#include <QImageReader>
#include <opencv2/imgproc.hpp>

namespace portable {

namespace {

// zlib's level 3 in the scale of Qt's PNG writer: twice as fast as its default, 10 % larger.
constexpr int pngQuality = 65;

bool isPicture(const cv::Mat &picture)
{
    return !picture.empty() && (picture.type() == CV_8UC3 || picture.type() == CV_8UC1);
}

QByteArray qtFile(const cv::Mat &picture, Dpi dpi, const char *format, int quality)
{
    if (!isPicture(picture)) {
        return {};
    }
    const bool isGrey = picture.channels() == 1;
    cv::Mat bgra; // the 24-bit format of this byte order is new in Qt 5.14
    if (!isGrey) {
        cv::cvtColor(picture, bgra, cv::COLOR_BGR2BGRA);
    }
    const cv::Mat &pixels = isGrey ? picture : bgra;
    QImage image(pixels.data, pixels.cols, pixels.rows, int(pixels.step),
                 isGrey ? QImage::Format_Grayscale8 : QImage::Format_RGB32);
    constexpr double metresPerInch = 0.0254;
    image.setDotsPerMeterX(qRound(dpi.x / metresPerInch));
    image.setDotsPerMeterY(qRound(dpi.y / metresPerInch));
    QBuffer file;
    file.open(QIODevice::WriteOnly);
    return image.save(&file, format, quality) ? file.data() : QByteArray();
}

InkView inkView(const cv::Mat &ink)
{
    return {ink.data, qptrdiff(ink.step), {ink.cols, ink.rows}};
}

/// How bright the paper is, or would be, at each pixel of a grey picture.
cv::Mat paperAround(const cv::Mat &grey, int window)
{
    constexpr int reach = 4; // in windows: a quarter of the picture's shorter side
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

QByteArray jpegFile(const cv::Mat &picture, int quality, Dpi dpi)
{
    QString reason;
    const auto row = [&picture](int y, QString *) { return picture.ptr(y); };
    const Pixels pixels = picture.channels() == 1 ? Pixels::Grey : Pixels::Bgr;
    return isPicture(picture) ? jpegOfRows(picture.size(), pixels, quality, dpi, row, &reason)
                              : QByteArray();
}

QByteArray pngFile(const cv::Mat &picture, Dpi dpi)
{
    return qtFile(picture, dpi, "PNG", pngQuality);
}

QByteArray bmpFile(const cv::Mat &picture, Dpi dpi)
{
    return qtFile(picture, dpi, "BMP", -1);
}

QByteArray jpegTiffFile(const cv::Mat &picture, int quality, Dpi dpi)
{
    const QByteArray jpeg = jpegFile(picture, quality, dpi);
    return jpeg.isEmpty()
        ? QByteArray()
        : tiffOfJpeg(jpeg, {picture.cols, picture.rows}, picture.channels() == 1, dpi.x, dpi.y);
}

QByteArray bilevelTiffFile(const cv::Mat &ink, Dpi dpi)
{
    return ink.empty() ? QByteArray() : tiffOfInk(inkView(ink), dpi.x, dpi.y);
}

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

QByteArray group4Data(const cv::Mat &ink)
{
    const QByteArray tiff = bilevelTiffFile(ink, {});
    return tiff.isEmpty() ? QByteArray() : firstStrip(tiff);
}

cv::Mat readPicture(const QString &path, QString *error)
{
    const QByteArray bytes = readWholeFile(path, error);
    if (bytes.isNull()) {
        return {};
    }
    cv::Mat picture = readPictureBytes(bytes, error);
    if (picture.empty()) {
        *error = path + QStringLiteral(": ") + *error;
    }
    return picture;
}

cv::Mat readPictureBytes(const QByteArray &bytes, QString *error)
{
    QImage image;
    if (isTiff(bytes)) {
        image = readTiff(bytes, maxPixelsRead, error);
    } else {
        QBuffer buffer;
        buffer.setData(bytes);
        QImageReader reader(&buffer);
        reader.setAutoTransform(true); // as its camera was held
        const QSize size = reader.size();
        if (size.isValid() && qint64(size.width()) * size.height() > maxPixelsRead) {
            *error =
                QStringLiteral("%1 x %2 pixels are too many").arg(size.width()).arg(size.height());
            return {};
        }
        image = reader.read();
        *error = reader.errorString();
    }
    return image.isNull() ? cv::Mat() : toMat(image);
}

} // namespace portable
