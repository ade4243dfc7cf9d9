// SPDX-License-Identifier: MIT
/**
 * \file
 * What pages do to files. Every function may be called from any thread; one that fails has changed
 * nothing and gives the reason for the log in `error`.
 *
 * "File" means a regular file. Links are followed except where something is deleted or moved: then
 * the link itself goes. Nothing that exists is ever replaced. Paths are taken as the system takes
 * them; one that is empty, or too long for the system, is refused before anything is done.
 */
#pragma once

#include <QString>
#include <QStringList>

namespace portable {

/// Into the desktop's trash; where there is none, or it can't take the file, as deleteForever.
bool deleteFile(const QString &path, QString *error);
bool deleteForever(const QString &path, QString *error);

/// \param to  path of the copy, in a directory that exists
bool copyFile(const QString &from, const QString &to, QString *error);

/// \param to  the new path, in a directory that exists, on any file system
bool moveFile(const QString &from, const QString &to, QString *error);

/// As moveFile; but a bare name, without "/", means the same directory.
bool renameFile(const QString &from, const QString &to, QString *error);

bool isFile(const QString &path, QString *error);
bool isDirectory(const QString &path, QString *error);

/// With the directories above it. True when it exists already; "a/.." is never made on the way.
bool createDirectory(const QString &path, QString *error);

/// Whether xdg-open is there, the program behind the next two.
bool canOpenOnDesktop();

/// Shows it with the desktop's program for it. True once that was asked: it says no more.
bool openFile(const QString &path, QString *error);
bool openDirectory(const QString &path, QString *error);

/**
 * The files in a directory (not below it, none that are hidden) whose names have the format.
 * \param format  an extension ("jpg" or ".jpg") or a pattern ("*.jp*g"), in any case; several
 *                parted by ";". Empty or "*.*": all files.
 * \return names without the directory, sorted; empty on failure too
 */
QStringList filesOfFormat(const QString &directory, const QString &format, QString *error);

} // namespace portable
