// SPDX-License-Identifier: MIT
#include "devicelib/doccamera.h"
#include "portable/base/failure.h"
#include "portable/base/texts.h"
#include "portable/system/fileoperations.h"

namespace {

void logPathFailure(const char *function, const QString &path, const QString &error)
{
    portable::logFailure(function, portable::logText(path) + QStringLiteral(": ") + error);
}

/// Does it to a path; logs why it fails.
bool toPath(const char *function, const char *path,
            bool (*operation)(const QString &path, QString *error))
{
    QString error;
    const QString decoded = QString::fromUtf8(path);
    const bool done = operation(decoded, &error);
    if (!error.isEmpty()) {
        logPathFailure(function, decoded, error);
    }
    return done;
}

bool toPaths(const char *function, const char *from, const char *to,
             bool (*operation)(const QString &from, const QString &to, QString *error))
{
    QString error;
    const QString source = QString::fromUtf8(from);
    const QString target = QString::fromUtf8(to);
    const bool done = operation(source, target, &error);
    if (!error.isEmpty()) {
        logPathFailure(function, source + QStringLiteral(" -> ") + target, error);
    }
    return done;
}

} // namespace

namespace portable::api {

bool bDeleteFile(const char *path)
{
    return toPath(__func__, path, portable::deleteFile);
}

bool bDeleteFileForever(const char *path)
{
    return toPath(__func__, path, portable::deleteForever);
}

bool bCopyFile(const char *from, const char *to)
{
    return toPaths(__func__, from, to, portable::copyFile);
}

bool bMoveFile(const char *from, const char *to)
{
    return toPaths(__func__, from, to, portable::moveFile);
}

bool bReNameFile(const char *from, const char *to)
{
    return toPaths(__func__, from, to, portable::renameFile);
}

bool bFileIsExist(const char *path)
{
    return toPath(__func__, path, portable::isFile);
}

bool bDirIsExist(const char *path)
{
    return toPath(__func__, path, portable::isDirectory);
}

bool bCreateDir(const char *path)
{
    return toPath(__func__, path, portable::createDirectory);
}

bool OpenFile(const char *path)
{
    return toPath(__func__, path, portable::openFile);
}

bool bDispPath(const char *path)
{
    return toPath(__func__, path, portable::openDirectory);
}

bool IsExeExist()
{
    return portable::canOpenOnDesktop();
}

const char *sGetAllFormatFiles(const char *directory, const char *format)
{
    QString error;
    const QString folder = QString::fromUtf8(directory);
    const QStringList names = portable::filesOfFormat(folder, QString::fromUtf8(format), &error);
    if (!error.isEmpty()) {
        logPathFailure(__func__, folder, error);
    }
    thread_local QByteArray text; // another thread's call must not take away this one's text
    text = names.join(QLatin1Char('|')).toUtf8();
    return text.constData();
}

} // namespace portable::api
