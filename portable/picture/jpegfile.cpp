// SPDX-License-Identifier: MIT
#include "portable/picture/jpegfile.h"

#include <csetjmp>
#include <cstdio>

// After <cstdio>, which it needs.
#include <jerror.h>
#include <jpeglib.h>

namespace portable {

namespace {

constexpr UINT8 dotsPerInch = 1; // density units of a JFIF head
constexpr UINT8 dotsPerCentimetre = 2;

/// Makes libjpeg's errors, and warnings of a damaged picture, jump back instead of ending the
/// process.
struct Failure : jpeg_error_mgr
{
    std::jmp_buf back;
    char reason[JMSG_LENGTH_MAX] = {};

    jpeg_error_mgr *install()
    {
        jpeg_std_error(this);
        error_exit = [](j_common_ptr jpeg) { of(jpeg)->jump(jpeg); };
        emit_message = [](j_common_ptr jpeg, int level) {
            if (level < 0 && !isHarmless(jpeg->err->msg_code)) {
                of(jpeg)->jump(jpeg);
            }
        };
        return this;
    }

    static Failure *of(j_common_ptr jpeg) { return static_cast<Failure *>(jpeg->err); }

    /// Warnings that leave every pixel intact.
    static bool isHarmless(int code)
    {
        return code == JWRN_EXTRANEOUS_DATA || code == JWRN_JFIF_MAJOR || code == JWRN_ADOBE_XFORM;
    }

    [[noreturn]] void jump(j_common_ptr jpeg)
    {
        format_message(jpeg, reason);
        std::longjmp(back, 1);
    }
};

class Reader
{
public:
    Reader()
    {
        m_jpeg.err = m_failure.install();
        jpeg_create_decompress(&m_jpeg);
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

private:
    jpeg_decompress_struct m_jpeg{};
    Failure m_failure;
};

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
    Failure m_failure;
    jpeg_destination_mgr m_destination{};
    QByteArray m_bytes;
};

} // namespace

std::optional<JpegHead> validateJpeg(const QByteArray &bytes, qint64 maxPixels, QString *error)
{
    Reader reader;
    if (!reader.readHead(bytes)) {
        *error = reader.reason();
        return {};
    }
    const JpegHead head = reader.head();
    if (qint64(head.size.width) * head.size.height > maxPixels) {
        *error = QStringLiteral("%1 x %2 pixels are too many")
                     .arg(head.size.width)
                     .arg(head.size.height);
        return {};
    }
    if (!reader.decode()) {
        *error = reader.reason();
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
