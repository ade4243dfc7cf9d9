// SPDX-License-Identifier: MIT
// Section numbers are those of ISO 32000-1 (PDF 1.7).
#include "portable/document/pdfdocument.h"

#include "portable/base/atomicfile.h"

#include <QFile>

// Silences the warnings of qpdf 11 about the pointers of earlier versions.
#define POINTERHOLDER_TRANSITION 0
#include <qpdf/Pipeline.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFWriter.hh>

#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>
#include <memory>
#include <stdexcept>

namespace portable {

namespace {

#if defined(QPDF_MAJOR_VERSION) && QPDF_MAJOR_VERSION >= 11
template <class T> using QpdfPointer = std::shared_ptr<T>;
#else
template <class T> using QpdfPointer = PointerHolder<T>;
#endif

/// Provides qpdf with the bytes of a page in small blocks when it writes them.
class PageBytes : public QPDFObjectHandle::StreamDataProvider
{
public:
    PageBytes(const PageSpool &pages, const PageSpool::Entry &page)
        : m_pages(pages)
        , m_page(page)
    {
    }

    using StreamDataProvider::provideStreamData;
    void provideStreamData(int /*object*/, int /*generation*/, Pipeline *pipeline) override
    {
        std::array<char, 65536> buffer;
        qint64 length = 0;
        for (qint64 from = 0; from < m_page.length; from += length) {
            length = std::min<qint64>(m_page.length - from, qint64(buffer.size()));
            QString error;
            if (!m_pages.read(m_page, from, length, buffer.data(), &error)) {
                throw std::runtime_error(error.toStdString());
            }
            pipeline->write(reinterpret_cast<uchar *>(buffer.data()), std::size_t(length));
        }
        pipeline->finish();
    }

private:
    const PageSpool &m_pages;
    const PageSpool::Entry &m_page;
};

/// Parses an object from PDF syntax, with %1, %2, ... replaced.
template <class... Values> QPDFObjectHandle object(const char *text, const Values &...values)
{
    const QString filled = QString::fromLatin1(text).arg(values...);
    return QPDFObjectHandle::parse(filled.toStdString());
}

QString number(qint64 value)
{
    return QString::number(value);
}

/// Length in points, 1/72 inch.
QString points(int pixels, int dpi)
{
    return QString::number(pixels * 72.0 / dpi, 'f', 3);
}

/// 8.9.5, table 89
QPDFObjectHandle imageOf(QPDF &pdf, const PageSpool &pages, const PageSpool::Entry &entry)
{
    const Page &page = entry.page;
    const bool isInk = page.encoding == Encoding::Group4;
    const QString width = number(page.size.width);
    const QString height = number(page.size.height);
    QPDFObjectHandle image = QPDFObjectHandle::newStream(&pdf);
    image.replaceDict(
        object("<< /Type /XObject /Subtype /Image /Width %1 /Height %2"
               " /ColorSpace /%3 /BitsPerComponent %4 >>",
               width, height,
               isInk || page.isGrey ? QStringLiteral("DeviceGray") : QStringLiteral("DeviceRGB"),
               number(isInk ? 1 : 8)));
    // 7.4.6, table 11: K -1 is group 4; a bit of 1 is ink.
    const QPDFObjectHandle parameters = isInk
        ? object("<< /K -1 /Columns %1 /Rows %2 /BlackIs1 false >>", width, height)
        : QPDFObjectHandle::newNull();
    image.replaceStreamData(
        QpdfPointer<QPDFObjectHandle::StreamDataProvider>(new PageBytes(pages, entry)),
        QPDFObjectHandle::newName(isInk ? "/CCITTFaxDecode" : "/DCTDecode"), parameters);
    return image;
}

void addPage(QPDF &pdf, const PageSpool &pages, const PageSpool::Entry &entry)
{
    const QString width = points(entry.page.size.width, entry.page.dpi.x);
    const QString height = points(entry.page.size.height, entry.page.dpi.y);
    const QString content = QStringLiteral("q %1 0 0 %2 0 0 cm /Im0 Do Q\n").arg(width, height);
    QPDFObjectHandle page =
        pdf.makeIndirectObject(object("<< /Type /Page /MediaBox [0 0 %1 %2] >>", width, height));
    QPDFObjectHandle images = QPDFObjectHandle::newDictionary();
    images.replaceKey("/Im0", imageOf(pdf, pages, entry));
    QPDFObjectHandle resources = QPDFObjectHandle::newDictionary();
    resources.replaceKey("/XObject", images);
    page.replaceKey("/Resources", resources);
    page.replaceKey("/Contents", QPDFObjectHandle::newStream(&pdf, content.toStdString()));
    pdf.addPage(page, false);
}

struct CloseFile
{
    void operator()(std::FILE *file) const { std::fclose(file); }
};

/// Writes through a FILE of our own: qpdf doesn't report a full disk.
bool writeTo(const QString &path, const PageSpool &pages, QString *error)
{
    std::unique_ptr<std::FILE, CloseFile> file(
        std::fopen(QFile::encodeName(path).constData(), "wb"));
    if (!file) {
        *error = qt_error_string();
        return false;
    }
    try {
        QPDF pdf;
        pdf.emptyPDF();
        for (const PageSpool::Entry &entry : pages.pages()) {
            addPage(pdf, pages, entry);
        }
        QPDFWriter writer(pdf, "PDF", file.get(), false);
        writer.setStreamDataMode(qpdf_s_preserve);
        writer.write();
    } catch (const std::exception &failure) {
        *error = QString::fromLocal8Bit(failure.what());
        return false;
    }
    // Which write failed, and why, is no longer known.
    const bool written = std::fflush(file.get()) == 0 && std::ferror(file.get()) == 0;
    if (std::fclose(file.release()) != 0 || !written) {
        *error = QStringLiteral("not all of it could be written: is the disk full?");
        return false;
    }
    return true;
}

} // namespace

bool writePdf(const PageSpool &pages, const QString &path, QString *error)
{
    const auto write = [&pages](const QString &temporary, QString *why) {
        return writeTo(temporary, pages, why);
    };
    return writeWholeFile(path, write, error);
}

} // namespace portable
