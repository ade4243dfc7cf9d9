// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

namespace portable {

/**
 * Features as text. They come back through pages without their length, so they hold no zero byte,
 * begin with a mark of four characters, and end with a checksum: who reads one notices where it
 * ends or that it isn't one, without looking behind a NUL.
 */
class FeatureWriter
{
public:
    explicit FeatureWriter(const char *mark)
        : m_text(mark)
    {
    }

    /// \param digits  how many of 6 bits each the value takes; it is cut to their range
    void put(int value, int digits);

    QByteArray finish() const;

private:
    QByteArray m_text;
};

class FeatureReader
{
public:
    /// \param text  ends with a NUL; null reads like an empty one
    FeatureReader(const char *text, const char *mark);

    /// What was put there; 0, and isGood() is false from then on, when it wasn't.
    int take(int digits);

    /// Reads the checksum. \return whether everything up to it was as it was written
    bool finish();

    bool isGood() const { return m_good; }

    /// Behind what was read; meaningful while isGood().
    const char *end() const { return m_at; }

private:
    const char *const m_begin;
    const char *m_at;
    bool m_good;
};

} // namespace portable
