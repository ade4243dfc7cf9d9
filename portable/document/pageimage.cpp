// SPDX-License-Identifier: MIT
#include "portable/document/pageimage.h"

#include "portable/picture/jpegfile.h"
#include "portable/picture/resolution.h"

#include <QBuffer>
#include <QImage>
#include <QImageReader>

#include <utility>

namespace portable {

namespace {

/// Whether a scanner or a camera stand has such a resolution, and a page of it can be handled.
bool makesSense(Dpi dpi, const cv::Size &size)
{
    constexpr int lowest = 50;
    constexpr int highest = 4800;
    constexpr int longestPage =
        200; // inches: the most that PDF viewers have to show (ISO 32000-1, C.2)
    const auto one = [](int value, int pixels) {
        return value >= lowest && value <= highest && pixels / value <= longestPage;
    };
    return one(dpi.x, size.width) && one(dpi.y, size.height);
}

Dpi dpiOf(const std::optional<Dpi> &told, const cv::Size &size, Dpi otherwise)
{
    return told && makesSense(*told, size) ? *told : otherwise;
}

bool isJpeg(const QByteArray &file)
{
    return file.startsWith("\xff\xd8\xff");
}

/// Whether its camera was held upright, as EXIF tells; viewers of documents don't look at it.
bool isUpright(const QByteArray &jpeg)
{
    QBuffer buffer;
    buffer.setData(jpeg);
    return QImageReader(&buffer, "jpeg").transformation() == QImageIOHandler::TransformationNone;
}

std::optional<PageImage> page(Encoding encoding, const cv::Mat &picture, Dpi dpi, QByteArray bytes)
{
    if (bytes.isEmpty()) {
        return {};
    }
    return PageImage{{encoding, picture.size(), dpi, picture.channels() == 1}, std::move(bytes)};
}

/// One bit a pixel.
QByteArray pngOfInk(const cv::Mat &ink, Dpi dpi)
{
    QImage image = QImage(ink.data, ink.cols, ink.rows, int(ink.step), QImage::Format_Grayscale8)
                       .convertToFormat(QImage::Format_Mono, Qt::MonoOnly | Qt::ThresholdDither);
    constexpr double metresPerInch = 0.0254;
    image.setDotsPerMeterX(qRound(dpi.x / metresPerInch));
    image.setDotsPerMeterY(qRound(dpi.y / metresPerInch));
    QBuffer file;
    file.open(QIODevice::WriteOnly);
    return image.save(&file, "PNG") ? file.data() : QByteArray();
}

/// An image file that was proved to be whole.
struct ProvedFile
{
    std::optional<Dpi> dpi;
    std::optional<JpegHead> jpeg; ///< Where it is one.
};

std::optional<ProvedFile> prove(const QByteArray &file, QString *error)
{
    if (!isJpeg(file)) {
        return ProvedFile{storedDpi(file), {}}; // reading it proves it
    }
    const std::optional<JpegHead> head = validateJpeg(file, maxPixelsRead, error);
    return head ? std::make_optional(ProvedFile{head->dpi, head}) : std::nullopt;
}

/// Turns an image file into a page by `make`, which takes the picture and its resolution.
template <class Make>
std::optional<PageImage> reencoded(const QByteArray &file, const ProvedFile &proved, Dpi dpi,
                                   Make make, QString *error)
{
    const cv::Mat picture = readPictureBytes(file, error);
    if (picture.empty()) {
        return {};
    }
    std::optional<PageImage> image = make(picture, dpiOf(proved.dpi, picture.size(), dpi));
    if (!image) {
        *error = QStringLiteral("a picture of %1 x %2 pixels can't be made a page")
                     .arg(picture.cols)
                     .arg(picture.rows);
    }
    return image;
}

} // namespace

std::optional<PageImage> jpegPage(const cv::Mat &picture, int quality, Dpi dpi)
{
    return page(Encoding::Jpeg, picture, dpi, jpegFile(picture, quality, dpi));
}

std::optional<PageImage> group4Page(const cv::Mat &picture, Dpi dpi)
{
    return page(Encoding::Group4, picture, dpi, group4Data(bilevel(picture)));
}

std::optional<PageImage> bilevelPngPage(const cv::Mat &picture, Dpi dpi)
{
    return page(Encoding::Png, picture, dpi, pngOfInk(bilevel(picture), dpi));
}

PageImage bgrPage(const cv::Mat &picture, Dpi dpi)
{
    const cv::Mat rows = picture.isContinuous() ? picture : picture.clone();
    return {
        {Encoding::Bgr, rows.size(), dpi, false},
        QByteArray(reinterpret_cast<const char *>(rows.data), int(rows.total() * rows.elemSize()))};
}

std::optional<PageImage> jpegPageOf(const QByteArray &file, int quality, Dpi dpi, QString *error)
{
    const std::optional<ProvedFile> proved = prove(file, error);
    if (!proved) {
        return {};
    }
    if (proved->jpeg && proved->jpeg->isWidelySupported && isUpright(file)) {
        const JpegHead &head = *proved->jpeg;
        return PageImage{
            {Encoding::Jpeg, head.size, dpiOf(head.dpi, head.size, dpi), head.components == 1},
            file};
    }
    const auto make = [quality](const cv::Mat &picture, Dpi of) {
        return jpegPage(picture, quality, of);
    };
    return reencoded(file, *proved, dpi, make, error);
}

std::optional<PageImage> group4PageOf(const QByteArray &file, Dpi dpi, QString *error)
{
    const std::optional<ProvedFile> proved = prove(file, error);
    return proved ? reencoded(file, *proved, dpi, group4Page, error) : std::nullopt;
}

} // namespace portable
