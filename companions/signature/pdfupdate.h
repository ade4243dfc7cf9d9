// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QMap>

/**
 * Writes an incremental update of a PDF (ISO 32000-1, 7.5.6): objects and a cross-reference section
 * after the original's bytes, which stay as they are. The section is a table or a stream (7.5.4,
 * 7.5.8) as the original's last one is.
 *
 * Everything throws std::runtime_error.
 */
class PdfUpdate
{
public:
    /// \param highest  the highest object number that the original uses or leaves free
    PdfUpdate(const QByteArray &original, long long highest);

    /// Adds an object. \return the reference to it: "12 0 R"
    QByteArray add(const QByteArray &text);

    /// Adds a stream, compressed. \param entries  further ones of its dictionary
    QByteArray addStream(const QByteArray &data, const QByteArray &entries = {});

    /// Writes an object in the place of one of the original.
    void replace(int object, int generation, const QByteArray &text);

    /**
     * Ends the update. \param trailer  the original's entries that stay: /Root, /Info, /ID
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
    int m_header; ///< where the original's %PDF- stands: offsets count from there
    long long m_previous = 0; ///< offset of the original's last cross-reference section
    bool m_asStream = false;
    QMap<long long, Entry> m_entries; ///< what the update holds, by object number
};
