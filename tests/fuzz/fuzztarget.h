// SPDX-License-Identifier: MIT
/**
 * \file
 * A fuzz target: implements the three functions, in a file of its own; fuzzmain.cpp does the rest.
 *
 * The program is libFuzzer's. With FUZZ_SEEDS=<folder> in its environment it writes the seeds there
 * and ends. scripts/fuzz.sh does both.
 */
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <algorithm>

namespace fuzz {

/// Called once, before everything else; there is an application object, and no display.
void prepare();

/// Takes one input. It must come back in time, and neither throw, leak nor touch what isn't its.
void run(const QByteArray &input);

/// Good inputs from which libFuzzer starts.
QList<QByteArray> seeds();

/// An empty folder of this process for files; it is $TMPDIR as well.
QString folder();

/// Ends the program as a finding when something that must hold doesn't.
void require(bool holds, const char *what);

/// Takes the fields of an input, from its beginning; what is missing is 0 or empty.
class Fields
{
public:
    explicit Fields(const QByteArray &input)
        : m_input(input)
    {
    }

    bool atEnd() const { return m_at >= m_input.size(); }

    int byte() { return atEnd() ? 0 : uchar(m_input[m_at++]); }

    /// A field with its length before it, in two bytes, the lower one first; see field().
    QByteArray part()
    {
        const int low = byte();
        const int size = std::min(low | byte() << 8, m_input.size() - m_at);
        QByteArray taken = m_input.mid(m_at, size);
        m_at += size;
        return taken;
    }

    QByteArray rest()
    {
        QByteArray taken = m_input.mid(m_at);
        m_at = m_input.size();
        return taken;
    }

private:
    const QByteArray m_input;
    int m_at = 0;
};

/// For seeds: a field that Fields::part() takes; at most 65535 bytes.
inline QByteArray field(const QByteArray &bytes)
{
    return QByteArray(1, char(bytes.size() & 0xFF)) + char(bytes.size() >> 8) + bytes;
}

} // namespace fuzz
