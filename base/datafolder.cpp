// SPDX-License-Identifier: MIT
#include "base/datafolder.h"

#include "base/neighbor.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace base {

namespace {

bool isWritable(const QString &folder)
{
    return faccessat(AT_FDCWD, QFile::encodeName(folder).constData(), W_OK | X_OK, AT_EACCESS) == 0;
}

/// Relative paths are ignored, as desktops do with the XDG variables.
QString stateFolder()
{
    const QString home = qEnvironmentVariable("XDG_STATE_HOME");
    return (home.startsWith(QLatin1Char('/')) ? home
                                              : QDir::homePath() + QStringLiteral("/.local/state"))
        + QLatin1Char('/') + QLatin1String(dataFolderName);
}

/// Makes the folder and its parents. \return why it can't be used
QString preparationProblem(const QString &folder)
{
    const mode_t before = umask(077);
    const bool isThere = QDir().mkpath(folder);
    umask(before);
    struct stat status = {};
    if (!isThere || stat(QFile::encodeName(folder).constData(), &status) != 0) {
        return QStringLiteral("it can't be created");
    }
    // Its devices.ini names the library that is loaded.
    if (status.st_uid != 0 && status.st_uid != ownUser()) {
        return QStringLiteral("it belongs to ") + userText(status.st_uid);
    }
    return isWritable(folder) ? QString() : QString::fromLocal8Bit(std::strerror(errno));
}

} // namespace

QString DataPlaces::find(const QString &name) const
{
    QString own = data + QLatin1Char('/') + name;
    if (data != program) {
        for (const QString &folder : {data, system, program}) {
            QString path = folder + QLatin1Char('/') + name;
            if (QFileInfo::exists(path)) {
                return path;
            }
        }
    }
    return own;
}

QString programFolder()
{
    static const QString folder =
        QFileInfo(QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath()).path();
    return folder;
}

QString dataFolder()
{
    const QByteArray chosen = qgetenv(dataFolderVariable);
    return chosen.isEmpty() ? programFolder() : QFile::decodeName(chosen);
}

QString findData(const QString &name)
{
    return DataPlaces{dataFolder(), QStringLiteral("/etc/") + QLatin1String(dataFolderName),
                      programFolder()}
        .find(name);
}

QString usualDataFolder(const QString &program)
{
    return isWritable(program) ? program : stateFolder();
}

QString chooseDataFolder(const QString &named, const QString &program)
{
    const QString wanted = named.isEmpty() ? qEnvironmentVariable(dataFolderVariable) : named;
    qunsetenv(dataFolderVariable);
    if (wanted.isEmpty() && isWritable(program)) {
        return QString();
    }
    const QString folder =
        QDir::cleanPath(QDir().absoluteFilePath(wanted.isEmpty() ? stateFolder() : wanted));
    const QString problem = preparationProblem(folder);
    if (!problem.isEmpty()) {
        return folder + QStringLiteral(": ") + problem;
    }
    if (folder != program) {
        qputenv(dataFolderVariable, QFile::encodeName(folder));
    }
    return QString();
}

} // namespace base
