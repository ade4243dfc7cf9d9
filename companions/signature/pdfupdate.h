// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QMap>

/**
 * Writes an incremental update of a PDF (ISO 32000-1, 7.5.6): appends objects and a cross-reference
 * section to the original's bytes, which stay unchanged. The section is a table or a stream (7.5.4,
 * 7.5.8), like the original's last one.
 */
class PdfUpdate
{
public:
    /**
     * \param highest  the highest object number that the original uses or lists as free
     * \throws std::runtime_error  no header, or no cross-reference section at its end
     */
    PdfUpdate(const QByteArray &original, long long highest);

    /// Adds an object. \return the reference to it: "12 0 R"
    QByteArray add(const QByteArray &text);

    /// Adds a stream, compressed. \param entries  more entries of its dictionary
    QByteArray addStream(const QByteArray &data, const QByteArray &entries = {});

    /// Replaces an object of the original.
    void replace(int object, int generation, const QByteArray &text);

    /**
     * Finishes the update. \param trailer  entries to keep of the original's: /Root, /Info, /ID
     * \return the original and the update
     */
    QByteArray finish(const QByteArray &trailer);

private:
    struct Entry
    {
        long long offset;
        int generation;
    };

    void write(long long object, int generation, const QByteArray &text);
    QByteArray table() const;
    QByteArray streamEntries() const;

    QByteArray m_bytes;
    long long m_next; ///< object number
    int m_header; ///< position of the original's %PDF-, which offsets count from
    long long m_previous = 0; ///< offset of the original's last cross-reference section
    bool m_asStream = false;
    QMap<long long, Entry> m_entries; ///< objects of the update by number
};
