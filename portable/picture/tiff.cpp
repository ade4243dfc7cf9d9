// SPDX-License-Identifier: MIT
#include "portable/picture/tiff.h"

#include <tiffio.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

namespace portable {

namespace {

/// The last error that libtiff reported on this thread.
thread_local QString complaint; // NOLINT: a handler of libtiff has no object to write to

void complain(const char *module, const char *format, va_list arguments)
{
    char text[200];
    std::vsnprintf(text, sizeof text, format, arguments);
    Q_UNUSED(module)
    complaint = QString::fromLocal8Bit(text);
}

/// A file in memory with the callbacks that libtiff needs.
class Memory
{
public:
    using Clock = std::chrono::steady_clock;

    explicit Memory(QByteArray bytes = {})
        : m_bytes(std::move(bytes))
    {
    }

    const QByteArray &bytes() const { return m_bytes; }

    /// Nothing can be read any more when the time is over.
    void setDeadline(Clock::time_point deadline) { m_deadline = deadline; }
    bool isLate() const { return m_isLate; }

    struct Close
    {
        void operator()(TIFF *tiff) const { TIFFClose(tiff); }
    };
    using File = std::unique_ptr<TIFF, Close>;

    /// \param mode  as of TIFFOpen. The file must be closed before this object goes.
    File open(const char *mode)
    {
        static const bool once = [] { // by default it writes to stderr
            TIFFSetErrorHandler(complain);
            TIFFSetWarningHandler(nullptr);
            return true;
        }();
        Q_UNUSED(once)
        complaint.clear();
        return File(TIFFClientOpen(
            "picture", mode, this, &Memory::read, &Memory::write, &Memory::seek,
            [](thandle_t) { return 0; }, &Memory::length, nullptr, nullptr));
    }

private:
    static Memory &of(thandle_t handle) { return *static_cast<Memory *>(handle); }

    static tmsize_t read(thandle_t handle, void *data, tmsize_t size)
    {
        Memory &self = of(handle);
        self.m_isLate = self.m_isLate || Clock::now() >= self.m_deadline;
        if (self.m_isLate) {
            return -1;
        }
        const qint64 left = std::max<qint64>(0, self.m_bytes.size() - self.m_position);
        const qint64 count = std::min<qint64>(left, size);
        if (count > 0) {
            std::memcpy(data, self.m_bytes.constData() + self.m_position, size_t(count));
            self.m_position += count;
        }
        return tmsize_t(count);
    }

    static tmsize_t write(thandle_t handle, void *data, tmsize_t size)
    {
        Memory &self = of(handle);
        const qint64 end = self.m_position + size;
        if (end > largest) {
            return -1;
        }
        if (end > self.m_bytes.size()) {
            const int former = self.m_bytes.size();
            self.m_bytes.resize(int(end));
            if (self.m_position > former) { // after a seek beyond the end
                std::fill(self.m_bytes.begin() + former,
                          self.m_bytes.begin() + int(self.m_position), '\0');
            }
        }
        std::memcpy(self.m_bytes.data() + self.m_position, data, size_t(size));
        self.m_position = end;
        return size;
    }

    static toff_t seek(thandle_t handle, toff_t offset, int whence)
    {
        Memory &self = of(handle);
        const qint64 base = whence == SEEK_SET ? 0
            : whence == SEEK_CUR               ? self.m_position
                                               : self.m_bytes.size();
        self.m_position = qBound<qint64>(0, base + qint64(offset), largest);
        return toff_t(self.m_position);
    }

    static toff_t length(thandle_t handle) { return toff_t(of(handle).m_bytes.size()); }

    static constexpr qint64 largest = 1 << 30;

    QByteArray m_bytes;
    qint64 m_position = 0;
    Clock::time_point m_deadline = Clock::time_point::max();
    bool m_isLate = false;
};

/// Whether libtiff needs more memory for a tile or strip than for all that may be decoded.
bool hasHugeParts(TIFF *tiff, qint64 maxPixels)
{
    constexpr uint64_t bytesPerPixel = 8; // four channels of 16 bits
    const uint64_t part =
        TIFFIsTiled(tiff) != 0 ? TIFFTileSize64(tiff) : TIFFStripSize64(tiff); // 0 on overflow
    return part == 0 || part > uint64_t(maxPixels) * bytesPerPixel;
}

/// Sets the fields that all our pictures have in common.
void describe(TIFF *tiff, QSize size, int dpiX, int dpiY)
{
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, uint32_t(size.width()));
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, uint32_t(size.height()));
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, uint32_t(size.height()));
    TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    TIFFSetField(tiff, TIFFTAG_XRESOLUTION, double(dpiX));
    TIFFSetField(tiff, TIFFTAG_YRESOLUTION, double(dpiY));
}

/// One bit a pixel, MSB first, 1 for ink; rows begin at whole bytes.
std::vector<uchar> packed(const InkView &ink)
{
    const int width = ink.size.width();
    const size_t rowBytes = (size_t(width) + 7) / 8;
    std::vector<uchar> bits(rowBytes * size_t(ink.size.height()));
    for (int y = 0; y < ink.size.height(); ++y) {
        const uchar *pixels = ink.pixels + y * ink.step;
        uchar *row = &bits[rowBytes * size_t(y)];
        for (int x = 0; x < width; ++x) {
            row[x / 8] = uchar(row[x / 8] | (pixels[x] == 0 ? 0x80 >> (x % 8) : 0));
        }
    }
    return bits;
}

/// Of the first picture; empty when it has none, or one beyond all sense.
QSize sizeOf(TIFF *tiff)
{
    uint32_t width = 0;
    uint32_t height = 0;
    const bool isKnown = TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width) != 0
        && TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height) != 0 && width <= INT_MAX
        && height <= INT_MAX;
    return isKnown ? QSize(int(width), int(height)) : QSize();
}

} // namespace

QByteArray tiffOfJpeg(const QByteArray &jpeg, QSize size, bool isGrey, int dpiX, int dpiY)
{
    Memory memory;
    bool ok = false;
    if (const Memory::File file = memory.open("wm")) {
        TIFF *tiff = file.get();
        describe(tiff, size, dpiX, dpiY);
        TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
        TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, isGrey ? 1 : 3);
        TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_JPEG);
        TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC,
                     isGrey ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_YCBCR);
        if (!isGrey) {
            TIFFSetField(tiff, TIFFTAG_YCBCRSUBSAMPLING, 2, 2);
        }
        // libtiff's parameter isn't const, but it only reads the data.
        ok = TIFFWriteRawStrip(tiff, 0, const_cast<char *>(jpeg.constData()), jpeg.size()) > 0
            && TIFFWriteDirectory(tiff) != 0;
    }
    return ok ? memory.bytes() : QByteArray();
}

QByteArray tiffOfInk(const InkView &ink, int dpiX, int dpiY)
{
    Memory memory;
    bool ok = false;
    std::vector<uchar> bits = packed(ink);
    if (const Memory::File file = memory.open("wm")) {
        TIFF *tiff = file.get();
        describe(tiff, ink.size, dpiX, dpiY);
        TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 1);
        TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
        TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
        TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
        TIFFSetField(tiff, TIFFTAG_FILLORDER, FILLORDER_MSB2LSB);
        ok = TIFFWriteEncodedStrip(tiff, 0, bits.data(), tmsize_t(bits.size())) > 0
            && TIFFWriteDirectory(tiff) != 0;
    }
    return ok ? memory.bytes() : QByteArray();
}

QByteArray firstStrip(const QByteArray &tiff)
{
    Memory memory(tiff);
    const Memory::File file = memory.open("rm");
    if (!file) {
        return {};
    }
    const tmsize_t size = TIFFRawStripSize(file.get(), 0);
    QByteArray strip(int(std::max<tmsize_t>(size, 0)), Qt::Uninitialized);
    return TIFFReadRawStrip(file.get(), 0, strip.data(), size) == size ? strip : QByteArray();
}

bool isTiff(const QByteArray &bytes)
{
    return bytes.startsWith(QByteArray("II*\0", 4)) || bytes.startsWith(QByteArray("MM\0*", 4));
}

QSize tiffDpi(const QByteArray &tiff)
{
    Memory memory(tiff);
    const Memory::File file = memory.open("rm");
    float x = 0;
    float y = 0;
    uint16_t unit = RESUNIT_NONE;
    if (!file || TIFFGetField(file.get(), TIFFTAG_XRESOLUTION, &x) == 0
        || TIFFGetField(file.get(), TIFFTAG_YRESOLUTION, &y) == 0
        || TIFFGetFieldDefaulted(file.get(), TIFFTAG_RESOLUTIONUNIT, &unit) == 0
        || unit == RESUNIT_NONE) {
        return {};
    }
    const double perInch = unit == RESUNIT_CENTIMETER ? 2.54 : 1;
    const auto whole = [perInch](float value) { // which may be anything, even infinite
        return value > 0 && value < 1e6F ? int(std::lround(double(value) * perInch)) : -1;
    };
    return {whole(x), whole(y)};
}

QSize tiffSize(const QByteArray &tiff)
{
    Memory memory(tiff);
    const Memory::File file = memory.open("rm");
    return file ? sizeOf(file.get()) : QSize();
}

QImage readTiff(const QByteArray &tiff, qint64 maxPixels, std::chrono::seconds limit,
                QString *error)
{
    Memory memory(tiff);
    memory.setDeadline(Memory::Clock::now() + limit);
    const Memory::File file = memory.open("rm");
    const QSize size = file ? sizeOf(file.get()) : QSize();
    if (size.isEmpty()) {
        *error = QStringLiteral("a damaged TIFF: ") + complaint;
        return {};
    }
    if (qint64(size.width()) * size.height() > maxPixels) {
        *error = QStringLiteral("%1 x %2 pixels are too many").arg(size.width()).arg(size.height());
        return {};
    }
    if (hasHugeParts(file.get(), maxPixels)) {
        *error = QStringLiteral("a TIFF whose tiles or strips are too large");
        return {};
    }
    QImage image(size, QImage::Format_RGBA8888);
    const bool isRead = !image.isNull()
        && TIFFReadRGBAImageOriented(file.get(), uint32_t(size.width()), uint32_t(size.height()),
                                     reinterpret_cast<uint32_t *>(image.bits()),
                                     ORIENTATION_TOPLEFT, 1)
            != 0;
    if (memory.isLate()) {
        *error = QStringLiteral("decoding it takes longer than %1 s").arg(limit.count());
    } else if (!isRead) {
        *error = QStringLiteral("a damaged TIFF: ") + complaint;
    }
    return isRead && !memory.isLate() ? image : QImage();
}

} // namespace portable
