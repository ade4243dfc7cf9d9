// SPDX-License-Identifier: MIT
#include "access/policyfile.h"

#include "base/neighbor.h"

#include <QFile>
#include <QFileInfo>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace accesspolicy {

namespace {

constexpr qint64 longestFile = qint64(256) * 1024;

QString systemError()
{
    return QString::fromLocal8Bit(strerror(errno));
}

/// Why others could have written it; empty if they couldn't.
QString rightsProblem(const struct stat &status, uid_t owner, const QString &what)
{
    if (status.st_uid != owner && status.st_uid != 0) {
        return QStringLiteral("%1 belongs to %2, not to %3")
            .arg(what, base::userText(status.st_uid), base::userText(owner));
    }
    return (status.st_mode & 022) != 0
        ? QStringLiteral("%1 is writable by others than its owner").arg(what)
        : QString();
}

/// Reads a file that only its owner, or root, can have written. \return the problem, or empty
QString readTrusted(const QString &path, uid_t owner, QByteArray *content)
{
    const QByteArray name = QFile::encodeName(path);
    const int descriptor = ::open(name.constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (descriptor < 0) {
        return errno == ELOOP ? QStringLiteral("it is a link") : systemError();
    }
    QFile file;
    file.open(descriptor, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle);
    struct stat status = {};
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        return QStringLiteral("it is no file");
    }
    QString problem = rightsProblem(status, owner, QStringLiteral("the file"));
    const QString folder = QFileInfo(path).path();
    if (problem.isEmpty() && stat(QFile::encodeName(folder).constData(), &status) == 0) {
        problem = rightsProblem(status, owner, QStringLiteral("its folder"));
    }
    if (!problem.isEmpty()) {
        return problem;
    }
    *content = file.read(longestFile + 1);
    return content->size() > longestFile
        ? QStringLiteral("it is longer than %1 bytes").arg(longestFile)
        : QString();
}

bool exists(const QString &path)
{
    struct stat status = {};
    return !path.isEmpty()
        && (lstat(QFile::encodeName(path).constData(), &status) == 0
            || (errno != ENOENT && errno != ENOTDIR)); // what can't be looked at may be a policy
}

} // namespace

PolicyPlaces PolicyPlaces::of(const QString &program, const QString &data)
{
    PolicyPlaces places;
    places.own = data + QStringLiteral("/access.ini");
    places.ownFolders = QStringList{program, data};
    return places;
}

FoundPolicy findPolicy(const PolicyPlaces &places)
{
    const bool isSystem = exists(places.system);
    const QString path = isSystem ? places.system : places.own;
    if (!isSystem && !exists(path)) {
        return {};
    }
    QByteArray content;
    const QString problem =
        readTrusted(path, isSystem ? places.systemOwner : base::ownUser(), &content);
    if (!problem.isEmpty()) {
        return {nullptr, PolicyError{path, 0, problem}};
    }
    QStringList own = places.ownFolders;
    own << QFileInfo(path).path();
    PolicyError error;
    const auto policy = parsePolicy(content, path, NeverFolders::of(own), &error);
    if (!policy) {
        return {nullptr, error};
    }
    return {std::make_shared<const Policy>(*policy), {}};
}

} // namespace accesspolicy
