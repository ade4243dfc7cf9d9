// SPDX-License-Identifier: MIT
#include "portable/system/fileoperations.h"

#include "base/display.h"
#include "portable/base/diskspace.h"
#include "portable/base/failure.h"
#include "portable/base/filereader.h"
#include "portable/base/texts.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <vector>

namespace portable {

namespace {

/// \param file  has just failed; its error text may contain a name from a page
bool setFileError(const QFile &file, QString *error)
{
    return setError(logText(file.errorString()), error);
}

/// Checked before anything is done: an operation could get halfway with an unusable path.
bool isUsable(const QString &path, QString *error)
{
    if (path.isEmpty()) {
        return setError(QStringLiteral("the path is empty"), error);
    }
    const QByteArray bytes = QFile::encodeName(path);
    const QList<QByteArray> names = bytes.split('/');
    const bool fits = bytes.size() < PATH_MAX
        && std::all_of(names.begin(), names.end(),
                       [](const QByteArray &name) { return name.size() <= NAME_MAX; });
    return fits || setError(QStringLiteral("the path is too long"), error);
}

/// The path for Qt, which takes ":..." for a resource of the program.
QString forQt(const QString &path)
{
    return path.startsWith(QLatin1Char(':')) ? QStringLiteral("./") + path : path;
}

/**
 * An absolute path without "..", resolved as by the kernel: Qt would simply drop "link/..", and
 * refer to another file. If the last component is a link, it isn't followed.
 */
QString resolved(const QFileInfo &file)
{
    const QString directory = QFileInfo(file.path()).canonicalFilePath();
    return QDir::cleanPath(directory + QLatin1Char('/') + file.fileName());
}

/// Fails with a reason unless it is a file.
bool requireFile(const QFileInfo &file, QString *error)
{
    return file.isFile()
        || setError(file.isDir()        ? QStringLiteral("it is a directory")
                        : file.exists() ? QStringLiteral("it is a device or the like, not a file")
                                        : QStringLiteral("there is no such file"),
                    error);
}

bool requireDirectory(const QFileInfo &directory, QString *error)
{
    return directory.isDir()
        || setError(directory.exists() ? QStringLiteral("it is not a directory")
                                       : QStringLiteral("there is no such directory"),
                    error);
}

/// Fails unless it is a file, or a link to anything: what can be deleted by name.
bool requireFileOrLink(const QFileInfo &file, QString *error)
{
    return file.isSymLink() || requireFile(file, error);
}

/// Fails if something is there already or its directory doesn't exist.
bool requirePlace(const QFileInfo &target, QString *error)
{
    if (target.exists() || target.isSymLink()) { // exists() is false for dangling links
        return setError(QStringLiteral("the target exists, and nothing is replaced"), error);
    }
    return QFileInfo(target.path()).isDir()
        || setError(QStringLiteral("there is no such target directory"), error);
}

std::filesystem::path native(const QString &path)
{
    return QFile::encodeName(path).toStdString();
}

/// On another file system, Qt would copy the link's target instead.
bool moveLink(const QString &from, const QString &to, QString *error)
{
    std::error_code code;
    std::filesystem::copy_symlink(native(from), native(to), code);
    if (!code && !std::filesystem::remove(native(from), code)) {
        std::error_code ignored;
        std::filesystem::remove(native(to), ignored);
    }
    return !code || setError(QString::fromStdString(code.message()), error);
}

/**
 * Copies a file, with its permissions, to a path where nothing is. Some files of the kernel would
 * never end: the copy does, at the size of the file, and it leaves room on the disk.
 */
bool copyContent(const QString &from, const QString &to, QString *error)
{
    RegularFile source;
    if (!source.open(from, std::numeric_limits<qint64>::max(), error)
        || !hasRoomFor(source.size(), to, error)) {
        return false;
    }
    const int file = ::open(QFile::encodeName(to).constData(),
                            O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, source.permissions() | 0200);
    if (file < 0) {
        return setError(qt_error_string(errno), error);
    }
    QFile target;
    target.open(file, QIODevice::WriteOnly | QIODevice::Unbuffered, QFileDevice::AutoCloseHandle);
    std::vector<char> block(1 << 20);
    qint64 count = 0;
    bool written = true;
    while (written && (count = source.read(block.data(), qint64(block.size()), error)) > 0) {
        written = target.write(block.data(), count) == count && hasRoomFor(0, to, error);
    }
    if (!written && error->isEmpty()) {
        setFileError(target, error);
    }
    ::fchmod(file, source.permissions());
    target.close();
    return (written && count == 0) || (QFile::remove(to), false);
}

bool moveToTrash(const QFileInfo &file)
{
#if QT_VERSION >= QT_VERSION_CHECK(5, 15, 0)
    // Without this directory Qt moves the file to "files" in the current directory.
    const QString data = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    return !data.isEmpty() && QDir().mkpath(data) && QFile::moveToTrash(resolved(file));
#else
    Q_UNUSED(file)
    return false;
#endif
}

/// Path of xdg-open (package xdg-utils), which finds the default program; empty when missing.
QString opener()
{
    return QStandardPaths::findExecutable(QStringLiteral("xdg-open"));
}

bool openOnDesktop(const QFileInfo &file, QString *error)
{
    const QString program = opener();
    if (program.isEmpty()) {
        return setError(QStringLiteral("there is no xdg-open (package xdg-utils)"), error);
    }
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
        return setError(
            QStringLiteral("there is no display: neither DISPLAY nor WAYLAND_DISPLAY is set"),
            error);
    }
    QProcess process;
    process.setProgram(program);
    process.setProcessEnvironment(base::desktopEnvironment());
    // An absolute path is never taken for an option or a URL.
    process.setArguments({resolved(file)});
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    return process.startDetached()
        || setError(QStringLiteral("%1: %2").arg(program, process.errorString()), error);
}

/// The name patterns of a format, see filesOfFormat().
QStringList patterns(const QString &format)
{
    QStringList result;
    for (const QString &part : format.split(QLatin1Char(';'))) {
        const QString text = part.trimmed();
        if (text == QLatin1String("*.*")) {
            result << QStringLiteral("*");
        } else if (text.contains(QLatin1Char('*')) || text.contains(QLatin1Char('?'))) {
            result << text;
        } else if (!text.isEmpty()) {
            result << (text.startsWith(QLatin1Char('.')) ? QStringLiteral("*")
                                                         : QStringLiteral("*."))
                    + text;
        }
    }
    return result.isEmpty() ? QStringList{QStringLiteral("*")} : result;
}

} // namespace

bool deleteFile(const QString &path, QString *error)
{
    const QFileInfo file(forQt(path));
    if (!isUsable(path, error) || !requireFileOrLink(file, error)) {
        return false;
    }
    return moveToTrash(file) || deleteForever(path, error);
}

bool deleteForever(const QString &path, QString *error)
{
    QFile file(forQt(path));
    if (!isUsable(path, error) || !requireFileOrLink(QFileInfo(file), error)) {
        return false;
    }
    return file.remove() || setFileError(file, error);
}

bool copyFile(const QString &from, const QString &to, QString *error)
{
    const QString target = forQt(to);
    if (!isUsable(from, error) || !isUsable(to, error)
        || !requireFile(QFileInfo(forQt(from)), error) || !requirePlace(QFileInfo(target), error)) {
        return false;
    }
    return copyContent(forQt(from), target, error);
}

bool moveFile(const QString &from, const QString &to, QString *error)
{
    QFile source(forQt(from));
    const QString target = forQt(to);
    if (!isUsable(from, error) || !isUsable(to, error)
        || !requireFileOrLink(QFileInfo(source), error)
        || !requirePlace(QFileInfo(target), error)) {
        return false;
    }
    if (QFileInfo(source).isSymLink()) {
        return moveLink(source.fileName(), target, error);
    }
    if (::renameat2(AT_FDCWD, QFile::encodeName(source.fileName()).constData(), AT_FDCWD,
                    QFile::encodeName(target).constData(), RENAME_NOREPLACE)
        == 0) {
        return true;
    }
    if (errno != EXDEV) { // some file systems can't tell whether something is replaced
        return source.rename(target) || setFileError(source, error);
    }
    return copyContent(source.fileName(), target, error)
        && (source.remove() || (QFile::remove(target), setFileError(source, error)));
}

bool renameFile(const QString &from, const QString &to, QString *error)
{
    const bool isBareName = !to.isEmpty() && !to.contains(QLatin1Char('/'));
    return moveFile(from, isBareName ? QFileInfo(forQt(from)).path() + QLatin1Char('/') + to : to,
                    error);
}

bool isFile(const QString &path, QString *error)
{
    return isUsable(path, error) && QFileInfo(forQt(path)).isFile();
}

bool isDirectory(const QString &path, QString *error)
{
    return isUsable(path, error) && QFileInfo(forQt(path)).isDir();
}

bool createDirectory(const QString &path, QString *error)
{
    if (!isUsable(path, error)) {
        return false;
    }
    std::error_code code;
    const std::filesystem::path place = std::filesystem::weakly_canonical(native(path), code);
    if (!code) {
        std::filesystem::create_directories(place, code);
    }
    std::error_code ignored;
    if (std::filesystem::is_directory(place, ignored)) {
        return true;
    }
    return setError(code ? QString::fromStdString(code.message())
                         : QStringLiteral("something else with that name exists"),
                    error);
}

bool canOpenOnDesktop()
{
    return !opener().isEmpty();
}

bool openFile(const QString &path, QString *error)
{
    const QFileInfo file(forQt(path));
    return isUsable(path, error) && requireFile(file, error) && openOnDesktop(file, error);
}

bool openDirectory(const QString &path, QString *error)
{
    const QFileInfo directory(forQt(path));
    return isUsable(path, error) && requireDirectory(directory, error)
        && openOnDesktop(directory, error);
}

QStringList filesOfFormat(const QString &directory, const QString &format, QString *error)
{
    const QDir folder(forQt(directory));
    if (!isUsable(directory, error) || !requireDirectory(QFileInfo(folder.absolutePath()), error)) {
        return {};
    }
    if (!folder.isReadable()) {
        setError(QStringLiteral("it may not be read"), error);
        return {};
    }
    QStringList names = folder.entryList(patterns(format), QDir::Files);
    names.sort();
    return names;
}

} // namespace portable
