// SPDX-License-Identifier: MIT
//
// PDFs that are to be signed.
#include "companions/signature/failure.h"
#include "companions/signature/pdfdocument.h"
#include "tests/fuzz/fuzztarget.h"

#include <QBuffer>
#include <QPainter>
#include <QPdfWriter>

namespace {

Ink signature()
{
    return Ink::fromJson("[[[0.1,0.2],[0.3,0.4,0.5],[0.5,0.6,0.7,0.8]],[[0.9,0.9]]]");
}

QByteArray painted()
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QPdfWriter writer(&buffer);
    QPainter painter(&writer);
    painter.drawLine(0, 0, 1000, 1000);
    writer.newPage();
    painter.drawRect(100, 100, 500, 500);
    painter.end();
    return bytes;
}

/// A PDF by hand, with its cross-reference table.
QByteArray written(const QList<QByteArray> &objects)
{
    QByteArray pdf = "%PDF-1.4\n";
    QByteArray table = "0000000000 65535 f \n";
    for (int i = 0; i < objects.size(); ++i) {
        table += QByteArray::number(pdf.size()).rightJustified(10, '0') + " 00000 n \n";
        pdf += QByteArray::number(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
    }
    const QByteArray size = QByteArray::number(objects.size() + 1);
    const QByteArray place = QByteArray::number(pdf.size());
    return pdf + "xref\n0 " + size + '\n' + table + "trailer\n<< /Size " + size
        + " /Root 1 0 R >>\nstartxref\n" + place + "\n%%EOF\n";
}

} // namespace

void fuzz::prepare() { }

void fuzz::run(const QByteArray &input)
{
    static const Ink ink = signature();
    try {
        const PdfDocument document(input);
        for (int page = 0; page <= std::min(3, document.pageCount()); ++page) {
            try {
                document.pageSize(page);
                const QByteArray bytes = document.withInk(page, QRectF(20, 30, 100, 40), ink);
                require(bytes.startsWith(input), "the document's bytes are kept");
            } catch (const SigningFailure &) { // NOLINT(bugprone-empty-catch): what it is for
            }
        }
    } catch (const SigningFailure &) { // NOLINT(bugprone-empty-catch)
    }
}

QList<QByteArray> fuzz::seeds()
{
    const QByteArray catalog = "<< /Type /Catalog /Pages 2 0 R >>";
    const QByteArray pages = "<< /Type /Pages /Kids [ 3 0 R ] /Count 1 /MediaBox [ 0 0 300 400 ] "
                             "/Rotate 90 >>";
    const QByteArray stream = "<< /Length 26 >>\nstream\nq 1 0 0 1 5 5 cm BT ET q Q\nendstream";
    const QByteArray field = "<< /Type /Annot /Subtype /Widget /Rect [ 10 10 200 200 ] /F 4 >>";
    const QByteArray page = "<< /Type /Page /Parent 2 0 R /Contents [ 4 0 R 4 0 R ] "
                            "/Annots [ 5 0 R ] /CropBox [ 10 20 200 300 ] >>";
    return {
        painted(),
        written({catalog, pages, "<< /Type /Page /Parent 2 0 R /Contents 4 0 R >>", stream}),
        written({catalog, pages, page, stream, field}),
    };
}
