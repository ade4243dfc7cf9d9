// SPDX-License-Identifier: MIT
#include "portable/picturefile.h"

#include "portable/images.h"
#include "portable/tiff.h"
#include "portable/wholefile.h"

#include <QBuffer>
#include <QImage>
#include <QImageReader>
#include <opencv2/imgproc.hpp>

#include <csetjmp>
#include <cstdio>
// After <cstdio>, whose types it uses without including it.
#include <jpeglib.h>

namespace portable {

namespace {

constexpr int largestJpegSide = 65500; // JPEG_MAX_DIMENSION of libjpeg
constexpr qint64 maximumPixelsRead = 128'000'000; // an A3 page of 600 dpi has 70 million

// zlib's level 3 in the scale of Qt's PNG writer: twice as fast as its default, 10 % larger.
constexpr int pngQuality = 65;

/** Compresses into a QByteArray, which grows as needed. */
struct JpegWriter
{
    jpeg_compress_struct jpeg{};
    jpeg_error_mgr errors{};
    jpeg_destination_mgr destination{};
    std::jmp_buf back{};
    QByteArray bytes;

    static JpegWriter &of(void *clientData) { return *static_cast<JpegWriter *>(clientData); }

    void grow(int used)
    {
        bytes.resize(qMax(2 * used, 256 * 1024));
        destination.next_output_byte = reinterpret_cast<JOCTET *>(bytes.data()) + used;
        destination.free_in_buffer = size_t(bytes.size() - used);
    }

    // No object with a destructor may be made in here: libjpeg's errors jump.
    bool write(const cv::Mat &picture, int quality, Dpi dpi)
    {
        jpeg.err = jpeg_std_error(&errors);
        errors.error_exit = [](j_common_ptr failed) {
            std::longjmp(of(failed->client_data).back, 1);
        };
        errors.output_message = [](j_common_ptr) {};
        jpeg.client_data = this;
        if (setjmp(back) != 0) {
            jpeg_destroy_compress(&jpeg);
            return false;
        }
        jpeg_create_compress(&jpeg);
        setDestination();
        setParameters(picture, quality, dpi);
        jpeg_start_compress(&jpeg, TRUE);
        while (jpeg.next_scanline < jpeg.image_height) {
            auto *row = const_cast<JSAMPROW>(picture.ptr(int(jpeg.next_scanline)));
            jpeg_write_scanlines(&jpeg, &row, 1);
        }
        jpeg_finish_compress(&jpeg);
        bytes.resize(bytes.size() - int(destination.free_in_buffer));
        jpeg_destroy_compress(&jpeg);
        return true;
    }

    void setDestination()
    {
        destination.init_destination = [](j_compress_ptr self) { of(self->client_data).grow(0); };
        destination.empty_output_buffer = [](j_compress_ptr self) -> boolean {
            JpegWriter &writer = of(self->client_data);
            writer.grow(writer.bytes.size()); // libjpeg means the whole buffer here
            return TRUE;
        };
        destination.term_destination = [](j_compress_ptr) {};
        jpeg.dest = &destination;
    }

    void setParameters(const cv::Mat &picture, int quality, Dpi dpi)
    {
        jpeg.image_width = JDIMENSION(picture.cols);
        jpeg.image_height = JDIMENSION(picture.rows);
        jpeg.input_components = picture.channels();
        jpeg.in_color_space = picture.channels() == 1 ? JCS_GRAYSCALE : JCS_EXT_BGR;
        jpeg_set_defaults(&jpeg); // 4:2:0
        jpeg_set_quality(&jpeg, quality, TRUE);
        jpeg.density_unit = 1; // dots per inch
        jpeg.X_density = UINT16(dpi.x);
        jpeg.Y_density = UINT16(dpi.y);
    }
};

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

} // namespace

QByteArray jpegFile(const cv::Mat &picture, int quality, Dpi dpi)
{
    if (!isPicture(picture) || picture.cols > largestJpegSide || picture.rows > largestJpegSide) {
        return {};
    }
    JpegWriter writer;
    return writer.write(picture, quality, dpi) ? writer.bytes : QByteArray();
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
    const cv::Mat grey = greyOf(picture);
    cv::Mat threshold;
    cv::boxFilter(grey, threshold, CV_8U, {window, window}, {-1, -1}, true, cv::BORDER_REPLICATE);
    threshold.convertTo(threshold, CV_8U, inkToSurroundings);
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
        image = readTiff(bytes, maximumPixelsRead, error);
    } else {
        QBuffer buffer;
        buffer.setData(bytes);
        QImageReader reader(&buffer);
        reader.setAutoTransform(true); // as its camera was held
        const QSize size = reader.size();
        if (size.isValid() && qint64(size.width()) * size.height() > maximumPixelsRead) {
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
