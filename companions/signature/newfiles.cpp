// SPDX-License-Identifier: MIT
#include "companions/signature/newfiles.h"

#include "companions/signature/failure.h"

#include <QFileInfo>
#include <QTemporaryFile>
#include <unistd.h>

namespace {

constexpr int maxNames = 10000;

QString numbered(const QFileInfo &wanted, int number)
{
    if (number == 1) {
        return wanted.filePath();
    }
    QString name = wanted.completeBaseName() + QStringLiteral("-%1").arg(number);
    if (!wanted.suffix().isEmpty()) {
        name += QLatin1Char('.') + wanted.suffix();
    }
    return wanted.path() + QLatin1Char('/') + name;
}

} // namespace

NewFiles::~NewFiles()
{
    for (const QString &path : qAsConst(m_paths)) {
        QFile::remove(path);
    }
}

QString NewFiles::write(const QString &wanted, const QByteArray &bytes,
                        QFile::Permissions permissions)
{
    const QFileInfo info(wanted);
    QTemporaryFile file(info.path() + QStringLiteral("/.elecsign-XXXXXX"));
    if (!file.open() || file.write(bytes) != bytes.size() || !file.flush()
        || fsync(file.handle()) != 0 || !file.setPermissions(permissions)) {
        throw SigningFailure{
            SigningFailure::NotWritten,
            QStringLiteral("can't write into %1: %2").arg(info.absolutePath(), file.errorString())};
    }
    // Renaming fails if the name is taken, so that no two processes get the same one.
    for (int number = 1; number <= maxNames; ++number) {
        QString path = numbered(info, number);
        if (QFileInfo::exists(path)) {
            continue;
        }
        if (file.rename(path)) {
            file.setAutoRemove(false);
            m_paths << path;
            return path;
        }
        if (!QFileInfo::exists(path)) {
            break;
        }
    }
    throw SigningFailure{SigningFailure::NotWritten,
                         QStringLiteral("can't make %1: %2").arg(wanted, file.errorString())};
}
