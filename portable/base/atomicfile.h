// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

#include <functional>
#include <utility>
#include <vector>

namespace portable {

/// A device path text (UTF-8) as a path; "" for null. Local 8-bit ones are converted by the caller.
QString pathOf(const char *utf8);

/**
 * The bytes of a regular file of at most a gigabyte; an empty one gives an empty array, not a null
 * one. \return null, with a reason that doesn't name the file, when it can't be read
 */
QByteArray readWholeFile(const QString &path, QString *error);

/**
 * Writes a file that is there whole or not at all: missing directories are made, the bytes go to a
 * temporary name beside the final one, which is renamed when all are written. An existing file is
 * replaced, a link too, not followed. On failure nothing is left behind, neither the directories.
 *
 * Nothing waits for the disk: the process may be killed at any moment, but after a power cut the
 * file may be missing or short.
 * \return false with a reason for the log, which names the path
 */
bool writeWholeFile(const QString &path, const QByteArray &bytes, QString *error);

/**
 * The same for writers that want a file name of their own (libraries that write by themselves,
 * files too large for memory): `write` gets the temporary path and returns success with the file
 * closed. There is an empty file under that path, and it ends like the final one (".mp4").
 */
bool writeWholeFile(const QString &path,
                    const std::function<bool(const QString &temporary, QString *error)> &write,
                    QString *error);

/// A file to be written: its path and its bytes.
using FileContent = std::pair<QString, QByteArray>;

/**
 * The same for files that belong together: all are written, then all get their names. Should that
 * fail in the middle, those that have theirs are removed again.
 */
bool writeWholeFiles(const std::vector<FileContent> &files, QString *error);

} // namespace portable
