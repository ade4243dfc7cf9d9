// SPDX-License-Identifier: MIT
#include "portable/base/diskspace.h"

#include "portable/base/failure.h"
#include "portable/base/inputlimits.h"

#include <QFile>
#include <QFileInfo>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>

namespace portable {

namespace {

/// The path itself or the nearest directory above it that exists.
QString existing(QString path)
{
    while (!QFileInfo::exists(path) && path != QFileInfo(path).path()) {
        path = QFileInfo(path).path();
    }
    return path;
}

} // namespace

bool hasRoomFor(qint64 bytes, const QString &path, QString *error)
{
    struct statvfs disk = {};
    if (::statvfs(QFile::encodeName(existing(path)).constData(), &disk) != 0) {
        return true;
    }
    const auto block = qint64(disk.f_frsize);
    const qint64 reserve = std::min(limits::diskReserve, qint64(disk.f_blocks) * block / 4);
    const qint64 free = qint64(disk.f_bavail) * block;
    return free - bytes >= reserve
        || setError(QStringLiteral("the disk is nearly full: %1 MB are free, and %2 MB are needed "
                                   "besides %3 MB kept for others")
                        .arg(free / limits::mebi)
                        .arg(bytes / limits::mebi)
                        .arg(reserve / limits::mebi),
                    error);
}

bool areOnOneDisk(const QString &one, const QString &other)
{
    const auto device = [](const QString &path) {
        struct stat status = {};
        ::stat(QFile::encodeName(existing(path)).constData(), &status);
        return status.st_dev;
    };
    return device(one) == device(other);
}

} // namespace portable
