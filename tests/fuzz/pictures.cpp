// SPDX-License-Identifier: MIT
//
// Picture files that pages name: decoded, checked, and turned into pages of documents.
#include "portable/document/mergedimage.h"
#include "portable/document/ofddocument.h"
#include "portable/document/pageimage.h"
#include "portable/document/pdfdocument.h"
#include "portable/picture/picturereader.h"
#include "portable/picture/picturewriter.h"
#include "portable/picture/tiff.h"
#include "tests/fuzz/fuzztarget.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QImage>
#include <opencv2/imgproc.hpp>

using namespace portable;

namespace {

constexpr PictureLimits fewPixels{4'000'000, 0}; // so that an input takes milliseconds
constexpr PictureLimits shrinking{4'000'000, 64};

QString path(const char *name)
{
    return QDir(fuzz::folder()).filePath(QLatin1String(name));
}

void checkDecoding(const QByteArray &file)
{
    QString error;
    const cv::Mat picture = decodePicture(file, &error, fewPixels);
    fuzz::require(picture.empty() || picture.type() == CV_8UC3, "a picture is 8-bit BGR");
    fuzz::require(picture.total() <= std::size_t(fewPixels.maxPixels), "the limit of pixels holds");
    fuzz::require(!picture.empty() || !error.isEmpty(), "a reason is given");
    const cv::Mat small = decodePicture(file, &error, shrinking);
    fuzz::require(std::max(small.cols, small.rows) <= shrinking.maxSide, "a picture is shrunk");
}

/// \return the size in the picture's header
cv::Size checkReading(const QByteArray &file)
{
    QFile written(path("picture"));
    fuzz::require(written.open(QIODevice::WriteOnly) && written.write(file) == file.size(),
                  "the fuzz target writes its file");
    written.close();
    QString error;
    readPicture(written.fileName(), &error, fewPixels);
    storedDpi(file);
    return pictureSize(written.fileName());
}

void checkDocuments(const QByteArray &file)
{
    QString error;
    if (!checkJpeg(file, &error) && !isTiff(file)) {
        return; // the decoder has been tried
    }
    PageSpool spool;
    if (const auto page = jpegPageOf(file, 75, Dpi(), &error)) {
        fuzz::require(spool.insert(0, *page, &error)
                          && writePdf(spool, path("a.pdf"), PdfKind::Archive, &error)
                          && writeOfd(spool, path("a.ofd"), &error),
                      "a page that was taken gets into a document");
    }
    group4PageOf(file, Dpi(), &error);
}

QByteArray encoded(const QImage &image, const char *format)
{
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, format);
    return buffer.data();
}

} // namespace

void fuzz::prepare() { }

void fuzz::run(const QByteArray &input)
{
    checkDecoding(input);
    const cv::Size size = checkReading(input);
    // Documents have limits of their own, which take seconds.
    if (qint64(size.width) * size.height <= fewPixels.maxPixels) {
        checkDocuments(input);
    }
}

QList<QByteArray> fuzz::seeds()
{
    cv::Mat picture(24, 32, CV_8UC3, cv::Scalar(255, 255, 255));
    cv::circle(picture, {16, 12}, 7, cv::Scalar(20, 90, 200), 3);
    QImage image(picture.data, picture.cols, picture.rows, int(picture.step),
                 QImage::Format_RGB888);
    image = image.copy();
    QImage withAlpha = image.convertToFormat(QImage::Format_ARGB32);
    withAlpha.fill(QColor(10, 20, 30, 40));
    const QImage palette = image.convertToFormat(QImage::Format_Indexed8);
    const QImage mono = image.convertToFormat(QImage::Format_Mono);
    const QByteArray jpeg = jpegFile(picture, 80, Dpi());

    // EXIF: a TIFF directory with an orientation, turned by 90 degrees.
    const QByteArray exif = QByteArray::fromHex("457869660000"
                                                "4d4d002a00000008"
                                                "0001"
                                                "0112000300000001"
                                                "00060000"
                                                "00000000");
    const QByteArray turned = jpeg.left(2) + QByteArray::fromHex("ffe1") + char(0)
        + char(exif.size() + 2) + exif + jpeg.mid(2);
    cv::Mat grey;
    cv::cvtColor(picture, grey, cv::COLOR_BGR2GRAY);
    const InkView ink{grey.data, qptrdiff(grey.step), QSize(grey.cols, grey.rows)};
    return {
        jpeg,
        turned,
        encoded(image, "png"),
        encoded(withAlpha, "png"),
        encoded(palette, "png"),
        encoded(mono, "png"),
        encoded(image, "bmp"),
        encoded(palette, "bmp"),
        encoded(image, "ppm"),
        encoded(mono, "pbm"),
        encoded(mono, "xbm"),
        encoded(palette, "xpm"),
        tiffOfJpeg(jpeg, image.size(), false, 300, 300),
        tiffOfInk(ink, 200, 200),
    };
}
