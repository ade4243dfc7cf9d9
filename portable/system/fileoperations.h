// SPDX-License-Identifier: MIT
/**
 * \file
 * File operations that pages may request. All functions may be called from any thread. On failure
 * they have changed nothing and set `error` to a reason for the log.
 *
 * "File" means a regular file. Symbolic links are followed, but deleting and moving affect the link
 * itself. Existing files are never replaced. Paths are resolved as by the kernel; empty paths and
 * paths longer than it allows are refused in advance.
 */
#pragma once

#include <QString>
#include <QStringList>

namespace portable {

/// Moves to the desktop's trash; where there is none or that fails, like deleteForever().
bool deleteFile(const QString &path, QString *error);
bool deleteForever(const QString &path, QString *error);

/// \param to  path of the copy, in a directory that exists
bool copyFile(const QString &from, const QString &to, QString *error);

/// \param to  the new path, in a directory that exists, on any file system
bool moveFile(const QString &from, const QString &to, QString *error);

/// Like moveFile(), but a name without "/" means the same directory.
bool renameFile(const QString &from, const QString &to, QString *error);

bool isFile(const QString &path, QString *error);
bool isDirectory(const QString &path, QString *error);

/// Creates missing parents, too; "a/.." doesn't create a. True if it exists already.
bool createDirectory(const QString &path, QString *error);

/// Whether xdg-open is installed, which the next two functions use.
bool canOpenOnDesktop();

/// Opens it with the desktop's default program. True once xdg-open has started.
bool openFile(const QString &path, QString *error);
bool openDirectory(const QString &path, QString *error);

/**
 * The files in a directory that match a format; not those in subdirectories or hidden ones.
 * \param format  extensions ("jpg" or ".jpg") or patterns ("*.jp*g") separated by ";", matched
 *                case-insensitively. Empty or "*.*": all files.
 * \return sorted names without the directory; empty on failure
 */
QStringList filesOfFormat(const QString &directory, const QString &format, QString *error);

} // namespace portable
