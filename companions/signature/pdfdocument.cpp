// SPDX-License-Identifier: MIT
// Section numbers are those of ISO 32000-1 (PDF 1.7).
#include "companions/signature/pdfdocument.h"

#include "companions/signature/failure.h"
#include "companions/signature/pdfupdate.h"

// Silences qpdf 11's warnings about the pointers of its earlier versions.
#define POINTERHOLDER_TRANSITION 0
#include <QUuid>
#include <qpdf/Pipeline.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFExc.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFPageObjectHelper.hh>

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

// Annex C.2: the highest object number that readers must support.
constexpr long long maxObject = 8388607;
constexpr int maxAdded = 6; // objects of an update

constexpr std::size_t maxContent = std::size_t(16) * 1024 * 1024; // bytes of a page, unpacked

constexpr double minPen = 0.8; // points; keeps small signatures legible in print

/// What a page's content leaves open at its end: graphics states, text, marked content.
class Balance : public QPDFObjectHandle::ParserCallbacks
{
public:
    using ParserCallbacks::handleObject;
    void handleObject(QPDFObjectHandle object) override
    {
        if (!object.isOperator()) {
            return;
        }
        const std::string name = object.getOperatorValue();
        if (name == "q") {
            ++m_depth;
        } else if (name == "Q") {
            m_lowest = std::min(m_lowest, --m_depth);
        } else if (name == "BT" || name == "ET") {
            m_inText = name == "BT";
        } else if (name == "BMC" || name == "BDC") {
            ++m_marked;
        } else if (name == "EMC" && m_marked > 0) {
            --m_marked;
        }
    }
    void handleEOF() override { }

    /// How many states to save before the content, which may restore more than it saves.
    int before() const { return 1 - m_lowest; }
    /// How many to restore after it.
    int after() const { return before() + m_depth; }
    /// Operators that end open text and marked content, such as a hidden layer.
    QByteArray closing() const
    {
        return (m_inText ? "\nET" : "") + QByteArray("\nEMC").repeated(m_marked) + '\n';
    }
    bool isClosed() const { return m_depth == 0 && m_lowest == 0 && !m_inText && m_marked == 0; }

private:
    int m_depth = 0;
    int m_lowest = 0;
    bool m_inText = false;
    int m_marked = 0;
};

#if defined(QPDF_MAJOR_VERSION) && QPDF_MAJOR_VERSION >= 11
using PipedBytes = const unsigned char *;
#else
using PipedBytes = unsigned char *;
#endif

/// Measures unpacked content, and stops the unpacking beyond a limit.
class SizeLimit : public Pipeline
{
public:
    SizeLimit()
        : Pipeline("size limit", nullptr)
    {
    }
    void write(PipedBytes /*bytes*/, std::size_t length) override
    {
        m_size += length;
        if (isExceeded()) { // qpdf stops unpacking, and swallows the exception
            throw std::length_error("size limit");
        }
    }
    void finish() override { }
    bool isExceeded() const { return m_size > maxContent; }

private:
    std::size_t m_size = 0;
};

struct PageGeometry
{
    QRectF box; ///< in user space; top() is the lower edge
    int rotation; ///< clockwise: 0, 90, 180, 270

    QSizeF shownSize() const { return rotation % 180 == 0 ? box.size() : box.size().transposed(); }

    /// Maps the page as shown to user space.
    QTransform fromShown() const
    {
        switch (rotation) {
        case 90:
            return QTransform(0, 1, -1, 0, box.right(), box.top());
        case 180:
            return QTransform(-1, 0, 0, -1, box.right(), box.bottom());
        case 270:
            return QTransform(0, -1, 1, 0, box.left(), box.bottom());
        default:
            return QTransform(1, 0, 0, 1, box.left(), box.top());
        }
    }
};

/// Null if the array is not a rectangle.
QRectF rectangle(QPDFObjectHandle array)
{
    if (!array.isArray() || array.getArrayNItems() != 4) {
        return {};
    }
    double numbers[4] = {};
    for (int i = 0; i < 4; ++i) {
        QPDFObjectHandle item = array.getArrayItem(i);
        if (!item.isNumber()) {
            return {};
        }
        numbers[i] = item.getNumericValue();
    }
    return QRectF(QPointF(numbers[0], numbers[1]), QPointF(numbers[2], numbers[3])).normalized();
}

PageGeometry geometryOf(QPDFObjectHandle page)
{
    QPDFPageObjectHelper helper(page);
    PageGeometry geometry{rectangle(helper.getAttribute("/MediaBox", false)), 0};
    const QRectF crop = rectangle(helper.getAttribute("/CropBox", false));
    if (crop.isValid() && geometry.box.intersects(crop)) {
        geometry.box &= crop; // 14.11.2.1
    }
    QPDFObjectHandle rotate = helper.getAttribute("/Rotate", false);
    if (rotate.isInteger()) {
        geometry.rotation = int((rotate.getIntValue() % 360 + 360) % 360);
    }
    if (!geometry.box.isValid() || geometry.rotation % 90 != 0) {
        throw SigningFailure{SigningFailure::Broken,
                             QStringLiteral("the page has no usable size or rotation")};
    }
    return geometry;
}

QByteArray number(double value)
{
    return QByteArray::number(value, 'f', 3);
}

/// The operators that draw the ink (8.4.4, 8.5.2, 8.5.3).
QByteArray inkOperators(const QVector<InkLine> &lines, const QRectF &place,
                        const QTransform &toUser)
{
    QByteArray text = "1 J 1 j [] 0 d " + number(Ink::color.redF()) + ' '
        + number(Ink::color.greenF()) + ' ' + number(Ink::color.blueF()) + " RG\n";
    for (const InkLine &line : lines) {
        text += number(std::max(line.width, minPen)) + " w";
        for (int i = 0; i < std::max(line.points.size(), 2); ++i) {
            const QPointF &inked = line.points[std::min(i, line.points.size() - 1)];
            const QPointF point = toUser.map(
                QPointF(place.left() + inked.x(), place.top() + place.height() - inked.y()));
            text += ' ' + number(point.x()) + ' ' + number(point.y()) + (i == 0 ? " m" : " l");
        }
        text += " S\n";
    }
    return text;
}

QByteArray unparsed(QPDFObjectHandle object)
{
    return QByteArray::fromStdString(object.unparse());
}

/**
 * The page's content streams between two new ones. The second closes what the content leaves open,
 * then draws.
 */
QByteArray contentsWith(QPDFObjectHandle page, const QByteArray &operators, PdfUpdate *update)
{
    std::vector<QPDFObjectHandle> streams{page.getKey("/Contents")};
    if (streams.front().isArray()) {
        streams = streams.front().getArrayAsVector();
    }
    SizeLimit limit;
    for (QPDFObjectHandle stream : streams) {
        if (stream.isStream()) {
            stream.pipeStreamData(&limit, 0, qpdf_dl_generalized);
        }
    }
    if (limit.isExceeded()) {
        throw std::runtime_error("the page's content unpacks to more than 16 MB");
    }
    Balance balance;
    page.parsePageContents(&balance);
    const QByteArray before = QByteArray("q ").repeated(balance.before()) + '\n';
    const QByteArray after =
        balance.closing() + QByteArray("Q ").repeated(balance.after()) + "q\n" + operators + "Q\n";
    QByteArray contents = update->addStream(before) + ' ';
    for (QPDFObjectHandle stream : streams) {
        if (stream.isStream()) {
            contents += unparsed(stream) + ' ';
        }
    }
    return contents + update->addStream(after);
}

/// The page's dictionary with new contents and, if there are any, new annotations.
QByteArray pageWith(QPDFObjectHandle page, const QByteArray &contents,
                    const QByteArray &annotations)
{
    QPDFObjectHandle dictionary = page.shallowCopy();
    dictionary.removeKey("/Contents");
    if (!annotations.isEmpty()) {
        dictionary.removeKey("/Annots");
    }
    QByteArray text = QByteArray::fromStdString(dictionary.unparseResolved());
    text.chop(2); // ">>"
    text += "/Contents [ " + contents + " ]";
    if (!annotations.isEmpty()) {
        text += " /Annots [ " + annotations + " ]";
    }
    return text + " >>";
}

/// Whether viewers draw this annotation (12.5) over the page's content in this area.
bool isDrawnOver(QPDFObjectHandle annotation, const QRectF &area)
{
    constexpr int hidden = 2;
    if (!annotation.isDictionary() || !rectangle(annotation.getKey("/Rect")).intersects(area)) {
        return false;
    }
    QPDFObjectHandle flags = annotation.getKey("/F");
    QPDFObjectHandle type = annotation.getKey("/Subtype");
    return !(flags.isInteger() && (flags.getIntValue() & hidden) != 0)
        && !(type.isName() && (type.getName() == "/Link" || type.getName() == "/Popup"));
}

/**
 * The page's annotations and a stamp (12.5.6.12) that draws the ink over them, if any of them would
 * hide it, usually a form field. Empty if none does.
 */
QByteArray annotationsAbove(QPDFObjectHandle page, const QRectF &area, const QByteArray &operators,
                            PdfUpdate *update)
{
    QPDFObjectHandle list = page.getKey("/Annots");
    if (!list.isArray()) {
        return {};
    }
    QByteArray references;
    bool isHidden = false;
    for (const QPDFObjectHandle &annotation : list.getArrayAsVector()) {
        references += unparsed(annotation) + ' ';
        isHidden = isHidden || isDrawnOver(annotation, area);
    }
    if (!isHidden) {
        return {};
    }
    const QByteArray box = "[ " + number(area.left()) + ' ' + number(area.top()) + ' '
        + number(area.right()) + ' ' + number(area.bottom()) + " ]";
    const QByteArray appearance =
        update->addStream(operators, "/Type /XObject /Subtype /Form /BBox " + box);
    constexpr int printedAndLocked = 4 + 64 + 128;
    return references
        + update->add("<< /Type /Annot /Subtype /Stamp /Rect " + box + " /F "
                      + QByteArray::number(printedAndLocked) + " /AP << /N " + appearance
                      + " >> >>");
}

SigningFailure encrypted()
{
    return {SigningFailure::Encrypted, QStringLiteral("the PDF is encrypted")};
}

SigningFailure broken(const std::exception &error)
{
    return {SigningFailure::Broken,
            QStringLiteral("not a sound PDF: ") + QString::fromUtf8(error.what())};
}

} // namespace

struct PdfDocument::Parsed
{
    QPDF pdf;
    long long highestInFile = 0; ///< object number
    std::vector<QPDFObjectHandle> pages;

    explicit Parsed(const QByteArray &bytes)
    {
        pdf.setSuppressWarnings(true);
        pdf.setAttemptRecovery(false);
        pdf.processMemoryFile("document", bytes.constData(), std::size_t(bytes.size()));
        QPDFObjectHandle size = pdf.getTrailer().getKey("/Size");
        if (!size.isInteger()) {
            throw std::runtime_error("no /Size in its trailer");
        }
        highestInFile = std::max(qint64(pdf.getObjectCount()), size.getIntValue() - 1);
        if (highestInFile > maxObject - maxAdded) {
            throw std::runtime_error("too many objects");
        }
        pages = pdf.getAllPages();
    }

    QPDFObjectHandle page(int number) const
    {
        if (number < 1 || number > int(pages.size())) {
            throw SigningFailure{SigningFailure::Place,
                                 QStringLiteral("there is no page %1: the document has %2")
                                     .arg(number)
                                     .arg(pages.size())};
        }
        QPDFObjectHandle page = pages[std::size_t(number - 1)];
        // qpdf invents numbers for pages that are in the tree twice or are not indirect objects.
        if (page.getObjectID() > highestInFile) {
            throw SigningFailure{SigningFailure::Broken,
                                 QStringLiteral("the page stands in the document in an odd way")};
        }
        return page;
    }

    /// 14.4: the first identifier stays, the second is that of this revision.
    QByteArray trailerOfUpdate()
    {
        QPDFObjectHandle old = pdf.getTrailer();
        QByteArray entries = "/Root " + unparsed(old.getKey("/Root"));
        if (old.hasKey("/Info")) {
            entries += " /Info " + unparsed(old.getKey("/Info"));
        }
        QPDFObjectHandle id = old.getKey("/ID");
        if (id.isArray() && id.getArrayNItems() == 2) {
            entries += " /ID [ " + unparsed(id.getArrayItem(0)) + " <"
                + QUuid::createUuid().toRfc4122().toHex() + "> ]";
        }
        return entries;
    }

    /// Whether a page has these contents and they parse to their end.
    bool hasContents(int number, const QByteArray &references)
    {
        Balance balance;
        page(number).parsePageContents(&balance);
        return balance.isClosed()
            && unparsed(page(number).getKey("/Contents")) == "[ " + references + " ]";
    }
};

PdfDocument::PdfDocument(const QByteArray &bytes)
    : m_bytes(bytes)
    , m_parsed([this] {
        try {
            auto parsed = std::make_unique<Parsed>(m_bytes);
            if (parsed->pdf.isEncrypted()) {
                throw encrypted();
            }
            return parsed;
        } catch (const QPDFExc &error) {
            throw error.getErrorCode() == qpdf_e_password ? encrypted() : broken(error);
        } catch (const std::exception &error) {
            throw broken(error);
        }
    }())
{
}

PdfDocument::~PdfDocument() = default;

int PdfDocument::pageCount() const
{
    return int(m_parsed->pages.size());
}

QSizeF PdfDocument::pageSize(int page) const
{
    try {
        return geometryOf(m_parsed->page(page)).shownSize();
    } catch (const std::exception &error) {
        throw broken(error);
    }
}

QByteArray PdfDocument::withInk(int pageNumber, const QRectF &place, const Ink &ink) const
{
    try {
        QPDFObjectHandle page = m_parsed->page(pageNumber);
        const PageGeometry geometry = geometryOf(page);
        const QByteArray operators =
            inkOperators(ink.lines(place.size()), place, geometry.fromShown());
        const double edge = minPen + place.height() / 20; // round line ends extend beyond the place
        const QRectF inked = geometry.fromShown().mapRect(place.adjusted(-edge, -edge, edge, edge));

        PdfUpdate update(m_bytes, m_parsed->highestInFile);
        const QByteArray contents = contentsWith(page, operators, &update);
        const QByteArray annotations = annotationsAbove(page, inked, operators, &update);
        update.replace(page.getObjectID(), page.getGeneration(),
                       pageWith(page, contents, annotations));
        QByteArray signedBytes = update.finish(m_parsed->trailerOfUpdate());
        if (!Parsed(signedBytes).hasContents(pageNumber, contents)) {
            throw std::runtime_error("what was appended can't be read back");
        }
        return signedBytes;
    } catch (const std::exception &error) {
        throw broken(error);
    }
}
