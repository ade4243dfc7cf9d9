// SPDX-License-Identifier: MIT
#include "portable/picture/picturereader.h"

#include "portable/base/atomicfile.h"
#include "portable/base/failure.h"
#include "portable/picture/imageconversion.h"
#include "portable/picture/tiff.h"

#include <QBuffer>
#include <QImageReader>

namespace portable {

namespace {

/// What a picture is shrunk to.
QSize limited(const QSize &size, const PictureLimits &limits)
{
    return limits.maxSide > 0 && qMax(size.width(), size.height()) > limits.maxSide
        ? size.scaled(limits.maxSide, limits.maxSide, Qt::KeepAspectRatio).expandedTo({1, 1})
        : size;
}

QImage decodeTiff(const QByteArray &file, QString *error, const PictureLimits &limits)
{
    const QImage image = readTiff(file, limits.maxPixels, error);
    const QSize size = limited(image.size(), limits);
    return size == image.size()
        ? image
        : image.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
}

/// Formats that Qt knows.
QImage decodeByQt(const QByteArray &file, QString *error, const PictureLimits &limits)
{
    QBuffer buffer;
    buffer.setData(file);
    QImageReader reader(&buffer);
    reader.setAutoTransform(true);
    const QSize size = reader.size();
    if (size.isValid() && qint64(size.width()) * size.height() > limits.maxPixels) {
        setError(QStringLiteral("%1 x %2 pixels are too many").arg(size.width()).arg(size.height()),
                 error);
        return {};
    }
    if (limited(size, limits) != size) {
        reader.setScaledSize(limited(size, limits));
    }
    QImage image = reader.read();
    if (image.isNull()) {
        setError(QStringLiteral("it can't be read as a picture: ") + reader.errorString(), error);
    }
    return image;
}

} // namespace

cv::Mat readPicture(const QString &path, QString *error, const PictureLimits &limits)
{
    const QByteArray file = readWholeFile(path, error);
    return file.isNull() ? cv::Mat() : decodePicture(file, error, limits);
}

cv::Mat decodePicture(const QByteArray &file, QString *error, const PictureLimits &limits)
{
    const QImage image =
        isTiff(file) ? decodeTiff(file, error, limits) : decodeByQt(file, error, limits);
    if (image.isNull()) {
        return {};
    }
    cv::Mat picture = toMat(image);
    if (picture.empty()) {
        setError(QStringLiteral("there is too little memory for it"), error);
    }
    return picture;
}

cv::Size pictureSize(const QString &path)
{
    const QImageReader reader(path);
    const bool isOnItsSide = reader.transformation() & QImageIOHandler::TransformationRotate90;
    const QSize size = isOnItsSide ? reader.size().transposed() : reader.size();
    return size.isEmpty() ? cv::Size() : cv::Size(size.width(), size.height());
}

std::optional<CheckedJpeg> checkJpeg(const QByteArray &file, QString *error,
                                     const PictureLimits &limits)
{
    const std::optional<JpegHead> head = validateJpeg(file, limits.maxPixels, error);
    if (!head) {
        return {};
    }
    QBuffer buffer;
    buffer.setData(file);
    const auto transformation = QImageReader(&buffer, "jpeg").transformation();
    return CheckedJpeg{*head, transformation == QImageIOHandler::TransformationNone};
}

} // namespace portable
