// SPDX-License-Identifier: MIT
#include "portable/picture/jpegfile.h"

#include "portable/base/failure.h"
#include "portable/base/inputlimits.h"
#include "portable/picture/jpegfailure.h"

#include <chrono>

namespace portable {

namespace {

constexpr UINT8 dotsPerInch = 1; // density units of a JFIF head
constexpr UINT8 dotsPerCentimetre = 2;

class Reader
{
public:
    Reader()
    {
        m_jpeg.err = m_failure.install();
        jpeg_create_decompress(&m_jpeg);
        m_jpeg.client_data = this;
        m_progress.progress_monitor = [](j_common_ptr jpeg) {
            static_cast<Reader *>(jpeg->client_data)->checkTime();
        };
        m_jpeg.progress = &m_progress;
    }
    ~Reader() { jpeg_destroy_decompress(&m_jpeg); }
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;

    // After setjmp no object with a destructor may be created: libjpeg's errors jump over it.
    bool readHead(const QByteArray &bytes)
    {
        if (setjmp(m_failure.back) != 0) {
            return false;
        }
        jpeg_mem_src(&m_jpeg, reinterpret_cast<const uchar *>(bytes.constData()),
                     ulong(bytes.size()));
        jpeg_read_header(&m_jpeg, TRUE);
        return true;
    }

    bool decode()
    {
        if (setjmp(m_failure.back) != 0) {
            return false;
        }
        m_jpeg.scale_denom = 8; // reads all of the data at little cost
        m_jpeg.out_color_space = m_jpeg.jpeg_color_space;
        jpeg_start_decompress(&m_jpeg);
        const JSAMPARRAY row =
            m_jpeg.mem->alloc_sarray(reinterpret_cast<j_common_ptr>(&m_jpeg), JPOOL_IMAGE,
                                     m_jpeg.output_width * JDIMENSION(m_jpeg.output_components), 1);
        while (m_jpeg.output_scanline < m_jpeg.output_height) {
            jpeg_read_scanlines(&m_jpeg, row, 1);
        }
        jpeg_finish_decompress(&m_jpeg);
        return true;
    }

    JpegHead head() const
    {
        JpegHead head;
        head.size = cv::Size(int(m_jpeg.image_width), int(m_jpeg.image_height));
        head.components = m_jpeg.num_components;
        head.isWidelySupported = !m_jpeg.arith_code && m_jpeg.data_precision == 8
            && (m_jpeg.jpeg_color_space == JCS_YCbCr || m_jpeg.jpeg_color_space == JCS_GRAYSCALE);
        const double unit = m_jpeg.density_unit == dotsPerCentimetre ? 2.54 : 1;
        if (m_jpeg.saw_JFIF_marker
            && (m_jpeg.density_unit == dotsPerInch || m_jpeg.density_unit == dotsPerCentimetre)) {
            head.dpi = Dpi{qRound(m_jpeg.X_density * unit), qRound(m_jpeg.Y_density * unit)};
        }
        return head;
    }

    QString reason() const { return QString::fromLatin1(m_failure.reason); }

    /// Whether the whole picture, in another form, is in memory while it is decoded.
    bool keepsCoefficients() { return jpeg_has_multiple_scans(&m_jpeg) != 0; }

    bool isLate() const { return m_isLate; }

private:
    void checkTime()
    {
        if (std::chrono::steady_clock::now() >= m_deadline) {
            m_isLate = true;
            std::longjmp(m_failure.back, 1);
        }
    }

    const std::chrono::steady_clock::time_point m_deadline =
        std::chrono::steady_clock::now() + limits::decoding;
    bool m_isLate = false;
    jpeg_decompress_struct m_jpeg{};
    jpeg_progress_mgr m_progress{};
    JpegFailure m_failure;
};

/// What says how much work a JPEG makes.
struct JpegOutline
{
    qint64 pixels = 0; ///< Of the largest frame.
    qint64 scans = 0;
};

/// Goes from marker to marker (ITU-T T.81, annex B) without decoding anything.
JpegOutline outlineOf(const QByteArray &bytes)
{
    constexpr int startOfScan = 0xda;
    JpegOutline outline;
    const auto byte = [&bytes](int at) { return int(uchar(bytes.at(at))); };
    const auto word = [&byte](int at) { return byte(at) << 8 | byte(at + 1); };
    // Compressed data hold no 0xff before anything but 0 and the restart markers, 0xd0 to 0xd7.
    for (int at = bytes.indexOf('\xff'); at >= 0 && at + 4 <= bytes.size();
         at = bytes.indexOf('\xff', at)) {
        const int marker = byte(++at);
        if (marker == 0 || marker == 1 || marker == 0xff || (marker >= 0xd0 && marker <= 0xd9)) {
            continue; // without a segment
        }
        const bool isFrame =
            marker >= 0xc0 && marker <= 0xcf && marker != 0xc4 && marker != 0xc8 && marker != 0xcc;
        if (isFrame && at + 8 <= bytes.size()) {
            outline.pixels = qMax(outline.pixels, qint64(word(at + 4)) * word(at + 6));
        }
        outline.scans += marker == startOfScan ? 1 : 0;
        at = at + 1 + word(at + 1);
    }
    return outline;
}

class Writer
{
public:
    Writer()
    {
        m_jpeg.err = m_failure.install();
        jpeg_create_compress(&m_jpeg);
        m_jpeg.client_data = this;
        m_destination.init_destination = [](j_compress_ptr jpeg) { of(jpeg).grow(0); };
        m_destination.empty_output_buffer = [](j_compress_ptr jpeg) -> boolean {
            of(jpeg).grow(of(jpeg).m_bytes.size()); // the whole buffer is full
            return TRUE;
        };
        m_destination.term_destination = [](j_compress_ptr jpeg) {
            Writer &self = of(jpeg);
            self.m_bytes.chop(int(self.m_destination.free_in_buffer));
        };
        m_jpeg.dest = &m_destination;
    }
    ~Writer() { jpeg_destroy_compress(&m_jpeg); }
    Writer(const Writer &) = delete;
    Writer &operator=(const Writer &) = delete;

    // After setjmp no object with a destructor may be created: libjpeg's errors jump over it.

    bool start(const cv::Size &size, Pixels pixels, int quality, Dpi dpi)
    {
        if (setjmp(m_failure.back) != 0) {
            return false;
        }
        m_jpeg.image_width = JDIMENSION(size.width);
        m_jpeg.image_height = JDIMENSION(size.height);
        m_jpeg.in_color_space = pixels == Pixels::Grey ? JCS_GRAYSCALE : JCS_EXT_BGR;
        m_jpeg.input_components = int(pixels);
        jpeg_set_defaults(&m_jpeg);
        jpeg_set_quality(&m_jpeg, quality, TRUE);
        m_jpeg.density_unit = dotsPerInch;
        m_jpeg.X_density = UINT16(qBound(1, dpi.x, 65535));
        m_jpeg.Y_density = UINT16(qBound(1, dpi.y, 65535));
        jpeg_start_compress(&m_jpeg, TRUE);
        return true;
    }

    bool writeRow(const uchar *pixels)
    {
        if (setjmp(m_failure.back) != 0) {
            return false;
        }
        auto *row = const_cast<JSAMPROW>(pixels); // libjpeg only reads it
        jpeg_write_scanlines(&m_jpeg, &row, 1);
        return true;
    }

    bool finish()
    {
        if (setjmp(m_failure.back) != 0) {
            return false;
        }
        jpeg_finish_compress(&m_jpeg);
        return true;
    }

    const QByteArray &bytes() const { return m_bytes; }
    QString reason() const { return QString::fromLatin1(m_failure.reason); }

private:
    static Writer &of(j_compress_ptr jpeg) { return *static_cast<Writer *>(jpeg->client_data); }

    void grow(int used)
    {
        m_bytes.resize(qMax(2 * used, 256 * 1024));
        m_destination.next_output_byte = reinterpret_cast<JOCTET *>(m_bytes.data()) + used;
        m_destination.free_in_buffer = std::size_t(m_bytes.size() - used);
    }

    jpeg_compress_struct m_jpeg{};
    JpegFailure m_failure;
    jpeg_destination_mgr m_destination{};
    QByteArray m_bytes;
};

} // namespace

bool checkScans(const QByteArray &bytes, QString *error)
{
    const JpegOutline outline = outlineOf(bytes);
    if (outline.scans > limits::jpegScans
        || outline.scans * outline.pixels > limits::jpegScanPixels) {
        return setError(QStringLiteral("%1 scans are too many for %2 pixels")
                            .arg(outline.scans)
                            .arg(outline.pixels),
                        error);
    }
    return true;
}

std::optional<JpegHead> validateJpeg(const QByteArray &bytes, QString *error)
{
    if (!checkScans(bytes, error)) {
        return {};
    }
    Reader reader;
    if (!reader.readHead(bytes)) {
        *error = reader.reason();
        return {};
    }
    const JpegHead head = reader.head();
    const qint64 maxPixels = reader.keepsCoefficients() ? limits::pixels : limits::unchangedPixels;
    if (qint64(head.size.width) * head.size.height > maxPixels) {
        *error = QStringLiteral("%1 x %2 pixels are too many")
                     .arg(head.size.width)
                     .arg(head.size.height);
        return {};
    }
    if (!reader.decode()) {
        *error = reader.isLate()
            ? QStringLiteral("decoding it takes longer than %1 s").arg(limits::decoding.count())
            : reader.reason();
        return {};
    }
    return head;
}

QByteArray jpegOfRows(const cv::Size &size, Pixels pixels, int quality, Dpi dpi,
                      const RowSource &rows, QString *error)
{
    Writer writer;
    bool ok = writer.start(size, pixels, quality, dpi);
    for (int y = 0; ok && y < size.height; ++y) {
        const uchar *row = rows(y, error);
        if (!row) {
            return {};
        }
        ok = writer.writeRow(row);
    }
    if (ok && writer.finish()) {
        return writer.bytes();
    }
    *error = writer.reason();
    return {};
}

} // namespace portable
