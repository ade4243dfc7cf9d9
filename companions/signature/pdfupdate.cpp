// SPDX-License-Identifier: MIT
// Section numbers are those of ISO 32000-1 (PDF 1.7).
#include "companions/signature/pdfupdate.h"

#include <stdexcept>

PdfUpdate::PdfUpdate(const QByteArray &original, long long highest)
    : m_bytes(original)
    , m_next(highest + 1)
    , m_header(original.left(1024).indexOf("%PDF-")) // junk before it is common
{
    const int mark = original.lastIndexOf("startxref");
    if (m_header < 0 || mark < 0) {
        throw std::runtime_error("no %PDF- at its beginning or no startxref at its end");
    }
    // On a line of its own, which ends the number (7.5.5).
    const QByteArray rest = original.mid(mark + 9, 64).trimmed();
    int digits = 0;
    while (digits < rest.size() && rest[digits] >= '0' && rest[digits] <= '9') {
        ++digits;
    }
    bool isNumber = false;
    m_previous = rest.left(digits).toLongLong(&isNumber);
    if (!isNumber || m_previous <= 0 || m_previous >= original.size() - m_header) {
        throw std::runtime_error("its startxref leads nowhere");
    }
    m_asStream = !original.mid(m_header + int(m_previous), 32).trimmed().startsWith("xref");
    if (!m_bytes.endsWith('\n')) {
        m_bytes += '\n';
    }
}

void PdfUpdate::write(long long object, int generation, const QByteArray &text)
{
    m_entries[object] = Entry{m_bytes.size() - m_header, generation};
    m_bytes += QByteArray::number(object) + ' ' + QByteArray::number(generation) + " obj\n" + text
        + "\nendobj\n";
}

QByteArray PdfUpdate::add(const QByteArray &text)
{
    const long long object = m_next++;
    write(object, 0, text);
    return QByteArray::number(object) + " 0 R";
}

QByteArray PdfUpdate::addStream(const QByteArray &data, const QByteArray &entries)
{
    const QByteArray compressed = qCompress(data).mid(4); // without Qt's length prefix
    return add("<< " + entries + " /Filter /FlateDecode /Length "
               + QByteArray::number(compressed.size()) + " >>\nstream\n" + compressed
               + "\nendstream");
}

void PdfUpdate::replace(int object, int generation, const QByteArray &text)
{
    write(object, generation, text);
}

QByteArray PdfUpdate::finish(const QByteArray &trailer)
{
    const long long section = m_bytes.size() - m_header;
    const QByteArray kept = trailer + " /Prev " + QByteArray::number(m_previous);
    if (m_asStream) {
        const long long self = m_next++;
        m_entries[self] = Entry{section, 0};
        QByteArray index;
        for (const long long object : m_entries.keys()) {
            index += QByteArray::number(object) + " 1 ";
        }
        const QByteArray data = streamEntries();
        write(self, 0,
              "<< /Type /XRef /W [ 1 5 2 ] /Index [ " + index + "] /Size "
                  + QByteArray::number(m_next) + ' ' + kept + " /Length "
                  + QByteArray::number(data.size()) + " >>\nstream\n" + data + "\nendstream");
    } else {
        m_bytes += "xref\n" + table() + "trailer\n<< /Size " + QByteArray::number(m_next) + ' '
            + kept + " >>\n";
    }
    return m_bytes + "startxref\n" + QByteArray::number(section) + "\n%%EOF\n";
}

/// 7.5.4: subsections of one entry each, entries of 20 bytes.
QByteArray PdfUpdate::table() const
{
    QByteArray text;
    for (auto entry = m_entries.begin(); entry != m_entries.end(); ++entry) {
        text += QByteArray::number(entry.key()) + " 1\n"
            + QByteArray::number(entry->offset).rightJustified(10, '0') + ' '
            + QByteArray::number(entry->generation).rightJustified(5, '0') + " n \n";
    }
    return text;
}

/// 7.5.8.3: type 1, offset, generation, with the widths given in /W.
QByteArray PdfUpdate::streamEntries() const
{
    QByteArray data;
    for (const Entry &entry : m_entries) {
        data += '\x01';
        for (int shift = 32; shift >= 0; shift -= 8) {
            data += char((entry.offset >> shift) & 0xff);
        }
        data += char((entry.generation >> 8) & 0xff);
        data += char(entry.generation & 0xff);
    }
    return data;
}
