// SPDX-License-Identifier: MIT
#include "portable/document/pageimage.h"

#include "portable/picture/bilevel.h"
#include "portable/picture/picturereader.h"
#include "portable/picture/picturewriter.h"

#include <utility>

namespace portable {

namespace {

/// Whether a scanner or a document camera can have that resolution, and viewers can show the page.
bool isPlausible(Dpi dpi, const cv::Size &size)
{
    constexpr int lowest = 50;
    constexpr int highest = 4800;
    constexpr int maxInches =
        200; // inches: the largest that PDF viewers must support (ISO 32000-1, C.2)
    const auto one = [](int value, int pixels) {
        return value >= lowest && value <= highest && pixels / value <= maxInches;
    };
    return one(dpi.x, size.width) && one(dpi.y, size.height);
}

Dpi dpiOf(const std::optional<Dpi> &stored, const cv::Size &size, Dpi otherwise)
{
    return stored && isPlausible(*stored, size) ? *stored : otherwise;
}

bool isJpeg(const QByteArray &file)
{
    return file.startsWith("\xff\xd8\xff");
}

std::optional<PageImage> page(Encoding encoding, const cv::Mat &picture, Dpi dpi, QByteArray bytes)
{
    if (bytes.isEmpty()) {
        return {};
    }
    return PageImage{{encoding, picture.size(), dpi, picture.channels() == 1}, std::move(bytes)};
}

/// What is known of an image file before it is turned into a page.
struct CheckedFile
{
    std::optional<Dpi> dpi;
    std::optional<CheckedJpeg> jpeg; ///< Where it is one.
};

/// \return nullopt, with a reason, for a JPEG that isn't whole; others are checked as they are read
std::optional<CheckedFile> check(const QByteArray &file, QString *error)
{
    if (!isJpeg(file)) {
        return CheckedFile{storedDpi(file), {}};
    }
    const std::optional<CheckedJpeg> jpeg = checkJpeg(file, error);
    return jpeg ? std::make_optional(CheckedFile{jpeg->head.dpi, jpeg}) : std::nullopt;
}

/// Decodes an image file and turns it into a page by `make`, called with picture and resolution.
template <class Make>
std::optional<PageImage> reencoded(const QByteArray &file, const CheckedFile &checked, Dpi dpi,
                                   Make make, QString *error)
{
    const cv::Mat picture = decodePicture(file, error);
    if (picture.empty()) {
        return {};
    }
    std::optional<PageImage> image = make(picture, dpiOf(checked.dpi, picture.size(), dpi));
    if (!image) {
        *error = QStringLiteral("a picture of %1 x %2 pixels can't be turned into a page")
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
    return page(Encoding::Png, picture, dpi, bilevelPngFile(bilevel(picture), dpi));
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
    const std::optional<CheckedFile> checked = check(file, error);
    if (!checked) {
        return {};
    }
    if (checked->jpeg && checked->jpeg->head.isWidelySupported && checked->jpeg->isUpright) {
        const JpegHead &head = checked->jpeg->head;
        return PageImage{
            {Encoding::Jpeg, head.size, dpiOf(head.dpi, head.size, dpi), head.components == 1},
            file};
    }
    const auto make = [quality](const cv::Mat &picture, Dpi of) {
        return jpegPage(picture, quality, of);
    };
    return reencoded(file, *checked, dpi, make, error);
}

std::optional<PageImage> group4PageOf(const QByteArray &file, Dpi dpi, QString *error)
{
    const std::optional<CheckedFile> checked = check(file, error);
    return checked ? reencoded(file, *checked, dpi, group4Page, error) : std::nullopt;
}

} // namespace portable
