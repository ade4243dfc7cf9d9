// SPDX-License-Identifier: MIT
/// \file Files that pages, settings or cards name: the one place where the portable library opens
/// them for reading. Their limits are in inputlimits.h.
#pragma once

#include <QByteArray>
#include <QString>

namespace portable {

/**
 * A regular file, open for reading. It is opened once and never waited for: a FIFO, a device or a
 * socket under its name is refused, even if it takes the file's place at the last moment.
 */
class RegularFile
{
public:
    RegularFile() = default;
    ~RegularFile();
    RegularFile(const RegularFile &) = delete;
    RegularFile &operator=(const RegularFile &) = delete;

    /**
     * \param maxBytes  a larger file is refused
     * \return false, with a reason that doesn't name the file
     */
    bool open(const QString &path, qint64 maxBytes, QString *error);

    int handle() const { return m_file; } ///< -1 unless it is open.
    qint64 size() const { return m_size; } ///< In bytes, when it was opened.
    unsigned permissions() const { return m_permissions; } ///< As chmod takes them.

    /**
     * The bytes still to be read from it, which may be more than size() said. At most those of
     * open(), and of a file without a size at most limits::sizelessFile.
     * \return how many were read into `buffer`; 0 at the end; -1 with a reason
     */
    qint64 read(char *buffer, qint64 length, QString *error);

    bool rewind(); ///< To the beginning. \return false when that fails

private:
    int m_file = -1;
    qint64 m_size = 0;
    unsigned m_permissions = 0;
    qint64 m_maxBytes = 0;
    qint64 m_read = 0;
};

/**
 * The bytes of a regular file; an empty one gives an empty array, not a null one.
 * \return null, with a reason that doesn't name the file, when it can't be read or has more than
 * `maxBytes`
 */
QByteArray readWholeFile(const QString &path, qint64 maxBytes, QString *error);

} // namespace portable
