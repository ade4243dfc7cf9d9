// SPDX-License-Identifier: MIT
#include "camera/frameencoder.h"

#include "dispatch/base64.h"

#include <QBuffer>
#if QT_VERSION >= QT_VERSION_CHECK(5, 14, 0)
#include <QColorSpace>
#endif

#include <jerror.h>
#include <jpeglib.h>

#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <cstring>

namespace {

constexpr int rowsAtATime = 16; // one row of blocks of a 4:2:0 JPEG
constexpr int maximumDimension = 65500; // JPEG_MAX_DIMENSION of libjpeg
constexpr int defaultQuality = 75; // what Qt takes for its quality of -1
constexpr int engineBuffer = 2048; // pixels that Qt's raster engine handles at a time
constexpr int engineLimit = 32766; // beyond it does not draw all

/**
 * How the bytes of a picture lie, as libjpeg-turbo names it; JCS_UNKNOWN when it has to be
 * converted first.
 */
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

/// Texts, a color profile or a pixel ratio of their own go into Qt's file too; cameras have none.
bool hasMetadata(const QImage &image)
{
#if QT_VERSION >= QT_VERSION_CHECK(5, 14, 0)
    if (image.colorSpace().isValid()) {
        return true;
    }
#endif
    return !image.text().isEmpty() || image.devicePixelRatio() != 1;
}

// Which source pixel Qt's raster engine takes for each target pixel, in one direction. It counts in
// 16.16 fixed point, and has two ways of doing so.

constexpr double fixedPoint = 65536;

int pixelAt(qint64 position, int pixels)
{
    return int(qBound<qint64>(0, position >> 16, pixels - 1));
}

/// Pictures of 32 bits a pixel: steps from the first pixel's centre.
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
 * Others: through the inverted transformation, moved by a 65536th, anew for every run of target
 * pixels; along a row a run is as long as the engine's buffer, down the columns it is one.
 */
void mapByTransformation(int source, int target, int run, std::vector<int> &map)
{
    map.resize(std::size_t(target));
    const double factor = double(target) / source;
    const double scale = 1. / factor;
    const double offset = -(factor / fixedPoint) * scale;
    const auto step = qint64(scale * fixedPoint);
    for (int i = 0; i < target; ++i) {
        const int inRun = i % run;
        const auto start = qint64(((i - inRun + 0.5) * scale + offset) * fixedPoint);
        map[std::size_t(i)] = pixelAt(start + inRun * step, source);
    }
}

template <int bytesPerPixel>
void gatherRow(const uchar *source, const std::vector<int> &map, uchar *target)
{
    for (const int pixel : map) {
        std::memcpy(target, source + pixel * bytesPerPixel, bytesPerPixel);
        target += bytesPerPixel;
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

    /// False when libjpeg gave up; the picture is in data() and length() otherwise.
    bool compress(const QImage &frame, QSize size, J_COLOR_SPACE space);

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
    static void growOutput(Compressor *self, std::size_t used);
    void begin(const QImage &frame);
    void setDensity(const QImage &frame);
    void mapPixels(const QImage &frame, QSize size);
    int gatherRows(const QImage &frame, int first);

    jpeg_compress_struct m_jpeg{};
    Failure m_failure{};
    jpeg_destination_mgr m_destination{};
    std::vector<uchar> m_output;
    std::vector<uchar> m_gathered;
    std::array<uchar *, rowsAtATime> m_rows{};
    std::vector<int> m_columnMap;
    std::vector<int> m_rowMap;
};

FrameEncoder::Compressor::Compressor()
    : m_output(256 * 1024)
{
    m_jpeg.err = jpeg_std_error(&m_failure);
    m_failure.error_exit = [](j_common_ptr jpeg) {
        std::longjmp(static_cast<Failure *>(jpeg->err)->back, 1);
    };
    m_failure.output_message = [](j_common_ptr) {};
    jpeg_create_compress(&m_jpeg);
    m_jpeg.client_data = this;
    m_destination.init_destination = [](j_compress_ptr jpeg) { growOutput(of(jpeg), 0); };
    m_destination.empty_output_buffer = [](j_compress_ptr jpeg) -> boolean {
        Compressor *self = of(jpeg);
        const std::size_t used = self->m_output.size(); // libjpeg means the whole buffer here
        self->m_output.resize(2 * used);
        growOutput(self, used);
        return TRUE;
    };
    m_destination.term_destination = [](j_compress_ptr) {};
    m_jpeg.dest = &m_destination;
}

void FrameEncoder::Compressor::growOutput(Compressor *self, std::size_t used)
{
    self->m_destination.next_output_byte = self->m_output.data() + used;
    self->m_destination.free_in_buffer = self->m_output.size() - used;
}

// Between setjmp and the end no object with a destructor may be made here: libjpeg's errors jump.
// What is needed there stands in m_jpeg: compilers may lose arguments over the jump, and say so.
bool FrameEncoder::Compressor::compress(const QImage &frame, QSize size, J_COLOR_SPACE space)
{
    mapPixels(frame, size);
    const std::size_t rowBytes = std::size_t(size.width()) * (frame.depth() / 8U);
    m_gathered.resize(rowBytes * rowsAtATime);
    for (int i = 0; i < rowsAtATime; ++i) {
        m_rows[std::size_t(i)] = m_gathered.data() + rowBytes * uint(i);
    }
    m_jpeg.image_width = JDIMENSION(size.width());
    m_jpeg.image_height = JDIMENSION(size.height());
    m_jpeg.in_color_space = space;

    if (setjmp(m_failure.back) != 0) {
        jpeg_abort_compress(&m_jpeg);
        return false;
    }
    begin(frame);
    while (m_jpeg.next_scanline < m_jpeg.image_height) {
        const int rows = gatherRows(frame, int(m_jpeg.next_scanline));
        jpeg_write_scanlines(&m_jpeg, m_rows.data(), JDIMENSION(rows));
    }
    jpeg_finish_compress(&m_jpeg);
    return true;
}

void FrameEncoder::Compressor::begin(const QImage &frame)
{
    m_jpeg.input_components = frame.depth() / 8;
    jpeg_set_defaults(&m_jpeg);
    setDensity(frame);
    jpeg_set_quality(&m_jpeg, defaultQuality, TRUE);
    jpeg_start_compress(&m_jpeg, TRUE);
}

/// Qt writes dots per inch or per centimetre, whichever is nearer to a whole number.
void FrameEncoder::Compressor::setDensity(const QImage &frame)
{
    const int x = frame.dotsPerMeterX();
    const int y = frame.dotsPerMeterY();
    const auto fromWhole = [](double value) { return qAbs(value - qRound(value)); };
    const double inches = fromWhole(x * 2.54 / 100) + fromWhole(y * 2.54 / 100);
    const double centimetres = (fromWhole(x / 100.0) + fromWhole(y / 100.0)) * 2.54;
    if (inches < centimetres) {
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
}

/// Fills m_rows with the next rows of the target; returns how many.
int FrameEncoder::Compressor::gatherRows(const QImage &frame, int first)
{
    const int count = qMin(rowsAtATime, int(m_rowMap.size()) - first);
    for (int i = 0; i < count; ++i) {
        const uchar *source = frame.constScanLine(m_rowMap[std::size_t(first) + uint(i)]);
        uchar *target = m_rows[std::size_t(i)];
        if (frame.depth() == 32) {
            gatherRow<4>(source, m_columnMap, target);
        } else {
            gatherRow<3>(source, m_columnMap, target);
        }
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
    if (frame.isNull() || size.isEmpty() || size.width() > maximumDimension
        || size.height() > maximumDimension) {
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
    QByteArray &text = m_texts[m_nextText++ % m_texts.size()];
    if (!text.isDetached()) {
        text = QByteArray(); // still on its way to a page, which keeps it
    }
    text.resize(int(base64Length(length)));
    base64EncodeInto(jpeg, length, text.data());
    return text;
}
