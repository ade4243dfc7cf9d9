// SPDX-License-Identifier: MIT
#include "camera/frameencoder.h"

#include "base/freememory.h"
#include "dispatch/base64.h"

#include <QBuffer>
#if QT_VERSION >= QT_VERSION_CHECK(5, 14, 0)
#include <QColorSpace>
#endif

#include <jerror.h>
#include <jpeglib.h>

#include <algorithm>
#include <cmath>
#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

constexpr int rowsPerBatch = 8; // of 800 pixels: they stay in the first cache
constexpr int maxDimension = 65500; // libjpeg's JPEG_MAX_DIMENSION
constexpr int defaultQuality = 75; // Qt's meaning of quality -1
constexpr std::size_t leastOutput = std::size_t(256) * 1024; // bytes
constexpr int engineBuffer = 2048; // pixels that Qt's raster engine processes at a time
constexpr int engineLimit = 32766; // beyond this, Qt's raster engine clips

/// libjpeg-turbo's name for the image's byte order; JCS_UNKNOWN when it must be converted first.
J_COLOR_SPACE colorSpaceOf(const QImage &image)
{
    switch (image.format()) {
    case QImage::Format_RGB32:
        return Q_BYTE_ORDER == Q_LITTLE_ENDIAN ? JCS_EXT_BGRX : JCS_EXT_XRGB;
    case QImage::Format_RGB888:
        return JCS_EXT_RGB;
#if QT_VERSION >= QT_VERSION_CHECK(5, 14, 0)
    case QImage::Format_BGR888:
        return JCS_EXT_BGR;
#endif
    default:
        return JCS_UNKNOWN;
    }
}

/// The same with a fourth byte behind those of each pixel.
J_COLOR_SPACE withFourth(J_COLOR_SPACE space)
{
    return space == JCS_EXT_RGB ? JCS_EXT_RGBX : space == JCS_EXT_BGR ? JCS_EXT_BGRX : space;
}

/// Whether Qt would write more than pixels and density into the file; camera frames have no more.
bool hasMetadata(const QImage &image)
{
#if QT_VERSION >= QT_VERSION_CHECK(5, 14, 0)
    if (image.colorSpace().isValid()) {
        return true;
    }
#endif
    return !image.text().isEmpty();
}

// The source pixel that Qt's raster engine takes for each target pixel, in one dimension. Qt
// computes it in 16.16 fixed point, in one of two ways.

constexpr double fixedPoint = 65536;

int pixelAt(qint64 position, int pixels)
{
    return int(qBound<qint64>(0, position >> 16, pixels - 1));
}

/// For 32 bits per pixel: fixed steps from the first pixel's center.
void mapBySteps(int source, int target, std::vector<int> &map)
{
    map.resize(std::size_t(target));
    const double scale = double(source) / target;
    const auto step = qint64(scale * fixedPoint);
    auto position = qint64(std::ceil(0.5 * scale * fixedPoint)) - 1;
    for (int &pixel : map) {
        pixel = pixelAt(position, source);
        position += step;
    }
}

/**
 * For other depths: by the inverse transformation, offset by 1/65536, which Qt applies once per run
 * of target pixels and steps from there.
 * \param runLength  engineBuffer along a row, 1 down the columns
 */
void mapByTransformation(int source, int target, int runLength, std::vector<int> &map)
{
    map.resize(std::size_t(target));
    const double factor = double(target) / source;
    const double scale = 1. / factor;
    const double offset = -(factor / fixedPoint) * scale;
    const auto step = qint64(scale * fixedPoint);
    for (int i = 0; i < target; ++i) {
        const int inRun = i % runLength;
        const auto start = qint64(((i - inRun + 0.5) * scale + offset) * fixedPoint);
        map[std::size_t(i)] = pixelAt(start + inRun * step, source);
    }
}

// Rows of pixels picked from a row of the frame. The map has their places there, in bytes.

void gatherRowOfOne(const uchar *source, const std::vector<int> &map, uchar *target)
{
    for (const int place : map) {
        *target++ = source[place];
    }
}

/// Moves four bytes for each place. In pairs: the compiler makes one write of two pixels.
void gatherFours(const uchar *source, const int *map, std::size_t count, uchar *target)
{
    constexpr std::size_t pair = 2;
    std::size_t i = 0;
    for (; i + pair <= count; i += pair) {
        std::array<std::uint32_t, pair> pixels{};
        std::memcpy(&pixels[0], source + map[i], 4);
        std::memcpy(&pixels[1], source + map[i + 1], 4);
        std::memcpy(target + 4 * i, pixels.data(), sizeof pixels);
    }
    if (i < count) {
        std::memcpy(target + 4 * i, source + map[i], 4);
    }
}

/**
 * Of three bytes, with any fourth: moved like this they take half of the time.
 * \param last  the place of the row's last pixel, behind which nothing may be read
 */
void gatherRowOfThree(const uchar *source, const std::vector<int> &map, int last, uchar *target)
{
    const auto end = std::lower_bound(map.begin(), map.end(), last); // places never go back
    const auto before = std::size_t(end - map.begin());
    gatherFours(source, map.data(), before, target);
    for (std::size_t i = before; i < map.size(); ++i) {
        std::memcpy(target + 4 * i, source + last, 3);
    }
}

} // namespace

/// One libjpeg compressor, kept from frame to frame with its output buffer.
class FrameEncoder::Compressor
{
public:
    Compressor();
    ~Compressor() { jpeg_destroy_compress(&m_jpeg); }
    Compressor(const Compressor &) = delete;
    Compressor &operator=(const Compressor &) = delete;

    /// Compresses into data() and length(). \return false when libjpeg reports an error
    bool compress(const QImage &frame, QSize size, J_COLOR_SPACE space);

    /// For the next files: another quality, and no density.
    void setPlain(int quality)
    {
        m_quality = quality;
        m_hasDensity = false;
    }

    const uchar *data() const { return m_output.data(); }
    std::size_t length() const { return m_output.size() - m_destination.free_in_buffer; }

private:
    struct Failure : jpeg_error_mgr
    {
        std::jmp_buf back;
    };

    static Compressor *of(j_compress_ptr jpeg)
    {
        return static_cast<Compressor *>(jpeg->client_data);
    }
    void startOutput();
    static void growOutput(Compressor *self, std::size_t used);
    void begin(const QImage &frame, int bytesPerPixel);
    void setDensity(const QImage &frame);
    void mapPixels(const QImage &frame, QSize size);
    int gatherRows(const QImage &frame, int first);
    int takeRows(const QImage &frame, int first);

    jpeg_compress_struct m_jpeg{};
    Failure m_failure{};
    jpeg_destination_mgr m_destination{};
    std::vector<uchar> m_output;
    std::size_t m_lastLength = 0; ///< Of what the picture before took.
    std::vector<uchar> m_gathered;
    std::array<uchar *, rowsPerBatch> m_rows{};
    bool m_isScaled = true;
    int m_bytesPicked = 0; ///< Of each pixel of a scaled frame.
    std::vector<int> m_columnMap; ///< In bytes.
    std::vector<int> m_rowMap;
    int m_quality = defaultQuality;
    bool m_hasDensity = true;
};

FrameEncoder::Compressor::Compressor()
    : m_output(leastOutput)
{
    m_jpeg.err = jpeg_std_error(&m_failure);
    m_failure.error_exit = [](j_common_ptr jpeg) {
        std::longjmp(static_cast<Failure *>(jpeg->err)->back, 1);
    };
    m_failure.output_message = [](j_common_ptr) {};
    jpeg_create_compress(&m_jpeg);
    m_jpeg.client_data = this;
    m_destination.init_destination = [](j_compress_ptr jpeg) { of(jpeg)->startOutput(); };
    m_destination.empty_output_buffer = [](j_compress_ptr jpeg) -> boolean {
        Compressor *self = of(jpeg);
        const std::size_t used = self->m_output.size(); // the whole buffer, by libjpeg's contract
        self->m_output.resize(2 * used);
        growOutput(self, used);
        return TRUE;
    };
    m_destination.term_destination = [](j_compress_ptr) {};
    m_jpeg.dest = &m_destination;
}

/// Smaller again if the picture before needed only a little of the buffer.
void FrameEncoder::Compressor::startOutput()
{
    if (m_output.size() > leastOutput && m_output.size() / 8 > m_lastLength) {
        m_output = std::vector<uchar>(m_output.size() / 2);
    }
    growOutput(this, 0);
}

void FrameEncoder::Compressor::growOutput(Compressor *self, std::size_t used)
{
    self->m_destination.next_output_byte = self->m_output.data() + used;
    self->m_destination.free_in_buffer = self->m_output.size() - used;
}

// libjpeg's errors jump back to setjmp: nothing below it may have a destructor, and what is needed
// after the jump is read from m_jpeg, since compilers may not preserve arguments across it.
bool FrameEncoder::Compressor::compress(const QImage &frame, QSize size, J_COLOR_SPACE space)
{
    m_isScaled = frame.size() != size;
    if (m_isScaled) {
        mapPixels(frame, size);
        space = withFourth(space);
    }
    m_jpeg.image_width = JDIMENSION(size.width());
    m_jpeg.image_height = JDIMENSION(size.height());
    m_jpeg.in_color_space = space;

    if (setjmp(m_failure.back) != 0) {
        jpeg_abort_compress(&m_jpeg);
        return false;
    }
    begin(frame, m_isScaled ? m_bytesPicked : frame.depth() / 8);
    while (m_jpeg.next_scanline < m_jpeg.image_height) {
        const int first = int(m_jpeg.next_scanline);
        const int rows = m_isScaled ? gatherRows(frame, first) : takeRows(frame, first);
        jpeg_write_scanlines(&m_jpeg, m_rows.data(), JDIMENSION(rows));
    }
    jpeg_finish_compress(&m_jpeg);
    m_lastLength = length();
    return true;
}

void FrameEncoder::Compressor::begin(const QImage &frame, int bytesPerPixel)
{
    m_jpeg.input_components = bytesPerPixel;
    jpeg_set_defaults(&m_jpeg);
    if (m_hasDensity) {
        setDensity(frame);
    }
    jpeg_set_quality(&m_jpeg, m_quality, TRUE);
    jpeg_start_compress(&m_jpeg, TRUE);
}

/// Dots per inch or per centimeter, whichever is closer to a whole number, as Qt writes it.
void FrameEncoder::Compressor::setDensity(const QImage &frame)
{
    const int x = frame.dotsPerMeterX();
    const int y = frame.dotsPerMeterY();
    const auto roundingError = [](double value) { return qAbs(value - qRound(value)); };
    const double inchError = roundingError(x * 2.54 / 100) + roundingError(y * 2.54 / 100);
    const double centimeterError = (roundingError(x / 100.0) + roundingError(y / 100.0)) * 2.54;
    if (inchError < centimeterError) {
        m_jpeg.density_unit = 1;
        m_jpeg.X_density = UINT16(qRound(x * 2.54 / 100));
        m_jpeg.Y_density = UINT16(qRound(y * 2.54 / 100));
    } else {
        m_jpeg.density_unit = 2;
        m_jpeg.X_density = UINT16((x + 50) / 100);
        m_jpeg.Y_density = UINT16((y + 50) / 100);
    }
}

void FrameEncoder::Compressor::mapPixels(const QImage &frame, QSize size)
{
    if (frame.depth() == 32) {
        mapBySteps(frame.width(), size.width(), m_columnMap);
        mapBySteps(frame.height(), size.height(), m_rowMap);
    } else {
        mapByTransformation(frame.width(), size.width(), engineBuffer, m_columnMap);
        mapByTransformation(frame.height(), size.height(), 1, m_rowMap);
    }
    for (int &column : m_columnMap) {
        column *= frame.depth() / 8;
    }
    m_bytesPicked = frame.depth() == 8 ? 1 : 4;
    const std::size_t rowBytes = std::size_t(size.width()) * uint(m_bytesPicked);
    m_gathered.resize(rowBytes * rowsPerBatch);
    for (int i = 0; i < rowsPerBatch; ++i) {
        m_rows[std::size_t(i)] = m_gathered.data() + rowBytes * uint(i);
    }
}

/// Fills m_rows with target rows from `first` on. \return their number
int FrameEncoder::Compressor::gatherRows(const QImage &frame, int first)
{
    const int count = qMin(rowsPerBatch, int(m_rowMap.size()) - first);
    for (int i = 0; i < count; ++i) {
        const uchar *source = frame.constScanLine(m_rowMap[std::size_t(first) + uint(i)]);
        uchar *target = m_rows[std::size_t(i)];
        if (frame.depth() == 32) {
            gatherFours(source, m_columnMap.data(), m_columnMap.size(), target);
        } else if (frame.depth() == 8) {
            gatherRowOfOne(source, m_columnMap, target);
        } else {
            gatherRowOfThree(source, m_columnMap, 3 * (frame.width() - 1), target);
        }
    }
    return count;
}

/// Points m_rows to rows of the frame itself, which isn't scaled. \return their number
int FrameEncoder::Compressor::takeRows(const QImage &frame, int first)
{
    const int count = qMin(rowsPerBatch, frame.height() - first);
    for (int i = 0; i < count; ++i) {
        m_rows[std::size_t(i)] = const_cast<uchar *>(frame.constScanLine(first + i));
    }
    return count;
}

FrameEncoder::FrameEncoder()
    : m_compressor(new Compressor)
{
}

FrameEncoder::~FrameEncoder() = default;

QByteArray FrameEncoder::encode(const QImage &frame, QSize size)
{
    if (frame.isNull() || size.isEmpty() || size.width() > maxDimension
        || size.height() > maxDimension) {
        return {};
    }
    const J_COLOR_SPACE space = colorSpaceOf(frame);
    if (space == JCS_UNKNOWN || hasMetadata(frame)
        || qMax(size.width(), size.height()) > engineLimit) {
        return encodeByQt(frame, size);
    }
    if (!m_compressor->compress(frame, size, space)) {
        return {};
    }
    return textOf(m_compressor->data(), m_compressor->length());
}

std::vector<unsigned char> FrameEncoder::fileOf(const QImage &picture, int quality)
{
    if (picture.isNull() || qMax(picture.width(), picture.height()) > maxDimension) {
        return {};
    }
    Compressor compressor;
    compressor.setPlain(quality);
    const bool isGray = picture.format() == QImage::Format_Grayscale8;
    if (!compressor.compress(picture, picture.size(),
                             isGray ? JCS_GRAYSCALE : colorSpaceOf(picture))) {
        return {};
    }
    return {compressor.data(), compressor.data() + compressor.length()};
}

std::optional<int> FrameEncoder::textLength(std::size_t fileLength)
{
    constexpr std::size_t longest = std::size_t(512) << 20;
    return fileLength <= longest ? std::optional(int(base64Length(fileLength))) : std::nullopt;
}

QByteArray FrameEncoder::encodeByQt(const QImage &frame, QSize size)
{
    QBuffer file;
    file.open(QIODevice::WriteOnly);
    if (!frame.scaled(size, Qt::IgnoreAspectRatio, Qt::FastTransformation).save(&file, "jpg", -1)) {
        return {};
    }
    return textOf(reinterpret_cast<const uchar *>(file.data().constData()),
                  std::size_t(file.data().size()));
}

QByteArray FrameEncoder::textOf(const unsigned char *jpeg, std::size_t length)
{
    const auto needed = textLength(length);
    if (!needed) {
        return {};
    }
    QByteArray &text = m_texts[m_nextText++ % m_texts.size()];
    if (!text.isDetached()) {
        text = QByteArray(); // still queued for a page, which keeps the old one
    }
    base::resizeBuffer(text, *needed);
    base64EncodeInto(jpeg, length, text.data());
    return text;
}
