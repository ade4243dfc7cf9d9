// SPDX-License-Identifier: MIT
#include "portable/card/tlv.h"

namespace portable {

namespace {

constexpr int maxDepth = 6; // EMV nests 4 deep

/// Reads bytes in order, and never past their end.
class Cursor
{
public:
    explicit Cursor(const QByteArray &bytes)
        : m_bytes(bytes)
    {
    }

    bool atEnd() const { return m_place == m_bytes.size(); }

    /// Zeros between objects are padding.
    void skipPadding()
    {
        while (!atEnd() && m_bytes[m_place] == 0) {
            ++m_place;
        }
    }

    bool readTag(quint32 *tag, bool *isConstructed)
    {
        quint8 byte = 0;
        if (!readByte(&byte)) {
            return false;
        }
        *tag = byte;
        *isConstructed = (byte & 0x20) != 0;
        if ((byte & 0x1F) != 0x1F) {
            return true;
        }
        for (int i = 0; i < 3; ++i) { // up to three more bytes; bit 8: another one follows
            if (!readByte(&byte)) {
                return false;
            }
            *tag = *tag << 8 | byte;
            if ((byte & 0x80) == 0) {
                return true;
            }
        }
        return false;
    }

    bool readLength(int *length)
    {
        quint8 byte = 0;
        if (!readByte(&byte)) {
            return false;
        }
        if (byte < 0x80) {
            *length = byte;
            return true;
        }
        const int count = byte & 0x7F;
        if (count < 1 || count > 3) { // 0 would be the indefinite form, which cards don't use
            return false;
        }
        *length = 0;
        for (int i = 0; i < count; ++i) {
            if (!readByte(&byte)) {
                return false;
            }
            *length = *length << 8 | byte;
        }
        return true;
    }

    bool readValue(int length, QByteArray *value)
    {
        if (length > m_bytes.size() - m_place) {
            return false;
        }
        *value = m_bytes.mid(m_place, length);
        m_place += length;
        return true;
    }

private:
    bool readByte(quint8 *byte)
    {
        if (atEnd()) {
            return false;
        }
        *byte = quint8(m_bytes[m_place++]);
        return true;
    }

    const QByteArray m_bytes;
    int m_place = 0;
};

/// Appends to `found`. \return false, with `found` unchanged, if the bytes are malformed
bool collect(const QByteArray &bytes, quint32 wanted, int depth, std::vector<QByteArray> *found)
{
    const size_t before = found->size();
    Cursor cursor(bytes);
    for (cursor.skipPadding(); !cursor.atEnd(); cursor.skipPadding()) {
        quint32 tag = 0;
        bool isConstructed = false;
        int length = 0;
        QByteArray value;
        if (!cursor.readTag(&tag, &isConstructed) || !cursor.readLength(&length)
            || !cursor.readValue(length, &value)) {
            found->resize(before);
            return false;
        }
        if (tag == wanted) {
            found->push_back(value);
        } else if (isConstructed && depth < maxDepth) {
            collect(value, wanted, depth + 1, found);
        }
    }
    return true;
}

} // namespace

std::vector<QByteArray> findAllTlv(const QByteArray &bytes, quint32 tag)
{
    std::vector<QByteArray> found;
    collect(bytes, tag, 1, &found);
    return found;
}

QByteArray findTlv(const QByteArray &bytes, quint32 tag)
{
    for (const QByteArray &value : findAllTlv(bytes, tag)) {
        if (!value.isEmpty()) {
            return value;
        }
    }
    return {};
}

bool parseDol(const QByteArray &bytes, std::vector<DolEntry> *entries)
{
    Cursor cursor(bytes);
    entries->clear();
    while (!cursor.atEnd()) {
        DolEntry entry;
        bool unused = false;
        if (!cursor.readTag(&entry.tag, &unused) || !cursor.readLength(&entry.length)) {
            return false;
        }
        entries->push_back(entry);
    }
    return true;
}

} // namespace portable
