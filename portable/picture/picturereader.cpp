// SPDX-License-Identifier: MIT
#include "portable/picture/picturereader.h"

#include "portable/base/failure.h"
#include "portable/base/filereader.h"
#include "portable/base/inputlimits.h"
#include "portable/picture/imageconversion.h"
#include "portable/picture/tiff.h"

#include <QBuffer>
#include <QImageReader>

#include <cstring>

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
    const QImage image = readTiff(file, limits.maxPixels, limits.decoding, error);
    const QSize size = limited(image.size(), limits);
    return size == image.size()
        ? image
        : image.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
}

/**
 * The format as Qt's plug-ins name it, by the first bytes; null for others. Those of Qt that hold
 * pictures of another size than their head says (ICO), name other files or take any time (SVG), or
 * can't be told by their first bytes are none of ours.
 */
const char *formatOf(const QByteArray &file)
{
    struct Format
    {
        const char *name;
        const char *beginning;
    };
    constexpr Format formats[] = {{"jpeg", "\xff\xd8\xff"},
                                  {"png", "\x89PNG\r\n\x1a\n"},
                                  {"bmp", "BM"},
                                  {"gif", "GIF8"},
                                  {"pbm", "P1"},
                                  {"pbm", "P4"},
                                  {"pgm", "P2"},
                                  {"pgm", "P5"},
                                  {"ppm", "P3"},
                                  {"ppm", "P6"}};
    for (const Format &format : formats) {
        if (file.startsWith(format.beginning)) {
            return format.name;
        }
    }
    return file.startsWith("RIFF") && file.mid(8, 4) == "WEBP" ? "webp" : nullptr;
}

/**
 * The bytes of a file, which end at a deadline: so does the decoder that reads them. No QBuffer,
 * as some of Qt's decoders take the whole of its bytes at once.
 */
class TimedBytes : public QIODevice
{
public:
    TimedBytes(const QByteArray &bytes, std::chrono::seconds limit)
        : m_bytes(bytes)
        , m_deadline(std::chrono::steady_clock::now() + limit)
    {
        open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    }

    qint64 size() const override { return m_bytes.size(); }
    bool isLate() const { return m_isLate; }

protected:
    qint64 readData(char *data, qint64 size) override
    {
        m_isLate = m_isLate || std::chrono::steady_clock::now() >= m_deadline;
        if (m_isLate) {
            return -1;
        }
        const qint64 count = qBound<qint64>(0, m_bytes.size() - pos(), size);
        std::memcpy(data, m_bytes.constData() + pos(), size_t(count));
        return count;
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    const QByteArray &m_bytes;
    const std::chrono::steady_clock::time_point m_deadline;
    bool m_isLate = false;
};

bool isTooLarge(const QSize &size, const PictureLimits &limits, QString *error)
{
    return qint64(size.width()) * size.height() > limits.maxPixels
        && !setError(
               QStringLiteral("%1 x %2 pixels are too many").arg(size.width()).arg(size.height()),
               error);
}

/// Formats that Qt knows.
QImage decodeByQt(const QByteArray &file, QString *error, const PictureLimits &limits)
{
    const char *format = formatOf(file);
    if (!format) {
        setError(QStringLiteral("it can't be read as a picture: Unsupported image format"), error);
        return {};
    }
    if (qstrcmp(format, "jpeg") == 0 && !checkScans(file, error)) {
        return {};
    }
    TimedBytes bytes(file, limits.decoding);
    QImageReader reader(&bytes, format);
    reader.setAutoDetectImageFormat(false);
    reader.setAutoTransform(true);
    const QSize size = reader.size();
    if (isTooLarge(size, limits, error)) {
        return {};
    }
    if (limited(size, limits) != size) {
        reader.setScaledSize(limited(size, limits));
    }
    QImage image = reader.read();
    if (bytes.isLate()) { // a part of it may have been decoded
        setError(QStringLiteral("decoding it takes longer than %1 s").arg(limits.decoding.count()),
                 error);
        return {};
    }
    if (image.isNull()) {
        setError(QStringLiteral("it can't be read as a picture: ") + reader.errorString(), error);
    }
    return isTooLarge(image.size(), limits, error) ? QImage() : image;
}

} // namespace

cv::Mat readPicture(const QString &path, QString *error, const PictureLimits &how)
{
    const QByteArray file = readWholeFile(path, limits::pictureFile, error);
    return file.isNull() ? cv::Mat() : decodePicture(file, error, how);
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
    QString unused;
    const QByteArray file = readWholeFile(path, limits::pictureFile, &unused);
    if (isTiff(file)) {
        const QSize size = tiffSize(file);
        return {size.width(), size.height()};
    }
    const char *format = formatOf(file);
    if (!format) {
        return {};
    }
    TimedBytes bytes(file, limits::decoding);
    QImageReader reader(&bytes, format);
    reader.setAutoDetectImageFormat(false);
    const bool isOnItsSide = reader.transformation() & QImageIOHandler::TransformationRotate90;
    const QSize size = isOnItsSide ? reader.size().transposed() : reader.size();
    return size.isEmpty() ? cv::Size() : cv::Size(size.width(), size.height());
}

std::optional<CheckedJpeg> checkJpeg(const QByteArray &file, QString *error)
{
    const std::optional<JpegHead> head = validateJpeg(file, error);
    if (!head) {
        return {};
    }
    QBuffer buffer;
    buffer.setData(file);
    const auto transformation = QImageReader(&buffer, "jpeg").transformation();
    return CheckedJpeg{*head, transformation == QImageIOHandler::TransformationNone};
}

} // namespace portable
