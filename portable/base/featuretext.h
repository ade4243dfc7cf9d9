// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

namespace portable {

/**
 * Features (of faces, of fingers) as text. Pages pass them on without their length, so they contain
 * no zero byte, begin with a mark of four characters and end with a checksum: a reader finds the
 * end, or notices damage, without reading beyond a NUL.
 */
class FeatureWriter
{
public:
    explicit FeatureWriter(const char *mark)
        : m_text(mark)
    {
    }

    /// \param digits  of 6 bits each; the value is clamped to their range
    void put(int value, int digits);

    QByteArray finish() const;

private:
    QByteArray m_text;
};

class FeatureReader
{
public:
    /// \param text  NUL-terminated; null is read like an empty one
    FeatureReader(const char *text, const char *mark);

    /// The next value; 0 when there is none, and isGood() is false from then on.
    int take(int digits);

    /// Reads the checksum. \return whether everything before it is intact
    bool finish();

    bool isGood() const { return m_good; }

    /// The first character after what was read; valid while isGood().
    const char *end() const { return m_at; }

private:
    const char *const m_begin;
    const char *m_at;
    bool m_good;
};

} // namespace portable
