// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

#include <functional>
#include <utility>
#include <vector>

namespace portable {

/// A path given in UTF-8; "" for null. Paths in the local 8-bit encoding are up to the caller.
QString pathOf(const char *utf8);

/// What becomes of the free space that hasRoomFor() keeps.
enum class Reserve {
    Keep, ///< A file that would use it isn't written.
    MayUse ///< For what was collected before and would be lost.
};

/**
 * Writes a file atomically: the bytes go to a temporary file in the same directory, which is
 * renamed when it is complete. Missing directories are created. An existing file is replaced; so is
 * a symbolic link, which is not followed. On failure nothing is left behind, not even directories.
 *
 * The data are not synced: they survive the end of the process at any moment, but after a power
 * failure the file may be missing or short.
 * \return false with a reason for the log, which names the path
 */
bool writeWholeFile(const QString &path, const QByteArray &bytes, QString *error,
                    Reserve reserve = Reserve::Keep);

/**
 * The same for content that is written by path (by a library, or too large for memory). `write` is
 * given the path of the temporary file, which exists, is empty and has the extension of the final
 * one (".mp4"); it returns true with the file closed, or false with a reason.
 */
bool writeWholeFile(const QString &path,
                    const std::function<bool(const QString &temporary, QString *error)> &write,
                    QString *error);

/// A file to be written: path and bytes.
using FileContent = std::pair<QString, QByteArray>;

/**
 * The same for files that belong together: all are written, then all are renamed. When a rename
 * fails, those renamed before are removed again.
 */
bool writeWholeFiles(const std::vector<FileContent> &files, QString *error);

} // namespace portable
