// SPDX-License-Identifier: MIT
// Section numbers are those of ISO 32000-1 (PDF 1.7).
#include "portable/document/documentmodule.h"

#include <QDateTime>
#include <QFile>
#if QT_VERSION >= QT_VERSION_CHECK(5, 14, 0)
#include <QColorSpace>
#endif

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

constexpr char producer[] = "portable device library " PORTABLE_VERSION;

QPDFObjectHandle textString(const QString &text)
{
    return QPDFObjectHandle::newUnicodeString(text.toStdString());
}

/// 7.9.4: D:YYYYMMDDHHmmSS and the time zone, in ASCII: newUnicodeString() of qpdf 10.1 makes
/// UTF-16.
QPDFObjectHandle pdfDate(const QDateTime &utc)
{
    return QPDFObjectHandle::newString(
        utc.toString(QStringLiteral("'D:'yyyyMMddhhmmss'Z'")).toStdString());
}

/// XMP (ISO 16684-1) with the same properties as the information dictionary, which PDF/A demands.
QByteArray metadata(const QString &title, const QDateTime &utc, PdfKind kind)
{
    const QString date = utc.toString(QStringLiteral("yyyy-MM-ddThh:mm:ss'Z'"));
    QString text = QStringLiteral(
        "<?xpacket begin=\"\uFEFF\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>\n"
        "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\">\n"
        "<rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">\n"
        "<rdf:Description rdf:about=\"\" xmlns:dc=\"http://purl.org/dc/elements/1.1/\""
        " xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\" xmlns:pdf=\"http://ns.adobe.com/pdf/1.3/\""
        " xmlns:pdfaid=\"http://www.aiim.org/pdfa/ns/id/\">\n"
        "<dc:title><rdf:Alt><rdf:li xml:lang=\"x-default\">%1</rdf:li></rdf:Alt></dc:title>\n"
        "<pdf:Producer>%2</pdf:Producer>\n"
        "<xmp:CreatorTool>%2</xmp:CreatorTool>\n"
        "<xmp:CreateDate>%3</xmp:CreateDate>\n"
        "<xmp:ModifyDate>%3</xmp:ModifyDate>\n");
    text = text.arg(title.toHtmlEscaped(), QLatin1String(producer), date);
    if (kind == PdfKind::Archive) {
        text += QLatin1String("<pdfaid:part>2</pdfaid:part>\n"
                              "<pdfaid:conformance>B</pdfaid:conformance>\n");
    }
    text += QLatin1String("</rdf:Description>\n</rdf:RDF>\n</x:xmpmeta>\n<?xpacket end=\"w\"?>\n");
    return text.toUtf8();
}

QPDFObjectHandle streamOf(QPDF &pdf, const char *dictionary, const QByteArray &bytes)
{
    QPDFObjectHandle stream = QPDFObjectHandle::newStream(&pdf, bytes.toStdString());
    stream.replaceDict(QPDFObjectHandle::parse(dictionary));
    return stream;
}

/// 14.3: Title, Producer and dates, in both forms.
void describe(QPDF &pdf, const QString &title, PdfKind kind)
{
    const QDateTime now = QDateTime::currentDateTimeUtc();
    QPDFObjectHandle info = QPDFObjectHandle::newDictionary();
    info.replaceKey("/Title", textString(title));
    info.replaceKey("/Producer", textString(QLatin1String(producer)));
    info.replaceKey("/Creator", textString(QLatin1String(producer)));
    info.replaceKey("/CreationDate", pdfDate(now));
    info.replaceKey("/ModDate", pdfDate(now));
    pdf.getTrailer().replaceKey("/Info", pdf.makeIndirectObject(info));
    pdf.getRoot().replaceKey(
        "/Metadata",
        streamOf(pdf, "<< /Type /Metadata /Subtype /XML >>", metadata(title, now, kind)));
}

/// ISO 19005-2, 6.2.3: what the colors of the pages mean. \return whether this Qt has a profile
bool addOutputIntent(QPDF &pdf)
{
#if QT_VERSION >= QT_VERSION_CHECK(5, 14, 0)
    const QByteArray profile = QColorSpace(QColorSpace::SRgb).iccProfile();
    QPDFObjectHandle intent = QPDFObjectHandle::parse("<< /Type /OutputIntent /S /GTS_PDFA1"
                                                      " /OutputConditionIdentifier (sRGB)"
                                                      " /RegistryName (http://www.color.org) >>");
    intent.replaceKey("/DestOutputProfile", streamOf(pdf, "<< /N 3 >>", profile));
    QPDFObjectHandle intents = QPDFObjectHandle::newArray();
    intents.appendItem(intent);
    pdf.getRoot().replaceKey("/OutputIntents", intents);
    return !profile.isEmpty();
#else
    Q_UNUSED(pdf)
    return false;
#endif
}

struct CloseFile
{
    void operator()(std::FILE *file) const { std::fclose(file); }
};

} // namespace

// Through a FILE of our own: qpdf doesn't report a full disk.
bool writePdfByQpdf(const QString &path, const PageSpool &pages, const QString &title, PdfKind kind,
                    QString *error)
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
        if (kind == PdfKind::Archive && !addOutputIntent(pdf)) {
            *error = QStringLiteral("PDF/A needs Qt 5.14 or newer");
            return false;
        }
        describe(pdf, title, kind);
        QPDFWriter writer(pdf, "PDF", file.get(), false);
        writer.setMinimumPDFVersion("1.7");
        writer.setNewlineBeforeEndstream(true); // ISO 19005-2, 6.1.7.1
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

} // namespace portable
