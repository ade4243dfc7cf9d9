// SPDX-License-Identifier: MIT
#include "base/neighbor.h"

#include "base/logtext.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <vector>

namespace base {

namespace {

constexpr uid_t nobodyElse = uid_t(-1); ///< No user has this id.
std::atomic<uid_t> s_testUser{nobodyElse}; ///< Threads of the status socket ask as well.

QString systemError()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

} // namespace

void setOwnUser(uid_t user)
{
    s_testUser = user;
}

uid_t ownUser()
{
    const uid_t user = s_testUser;
    return user == nobodyElse ? geteuid() : user;
}

QString userText(uid_t user)
{
    QString number = QStringLiteral("uid %1").arg(user);
    passwd entry{};
    passwd *found = nullptr;
    std::vector<char> names(16384);
    if (getpwuid_r(user, &entry, names.data(), names.size(), &found) != 0 || !found) {
        return number;
    }
    return QStringLiteral("%1 (%2)").arg(oneLine(QString::fromLocal8Bit(entry.pw_name)), number);
}

QString peerProblem(qintptr socket)
{
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(int(socket), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
        return QStringLiteral("its user can't be determined: ") + systemError();
    }
    if (peer.uid == ownUser()) {
        return {};
    }
    return QStringLiteral("it belongs to %1, process %2").arg(userText(peer.uid)).arg(peer.pid);
}

QString squatterProblem(const QString &path)
{
    struct stat folder = {};
    const QString folderPath = QFileInfo(path).path();
    if (::stat(QFile::encodeName(folderPath).constData(), &folder) != 0) {
        return {}; // there is no file either
    }
    if (folder.st_uid != ownUser() && folder.st_uid != 0) {
        return QStringLiteral("the folder %1 belongs to %2")
            .arg(oneLine(folderPath), userText(folder.st_uid));
    }
    struct stat file = {};
    if (::lstat(QFile::encodeName(path).constData(), &file) != 0 || file.st_uid == ownUser()) {
        return {};
    }
    return QStringLiteral("%1 belongs to %2").arg(oneLine(path), userText(file.st_uid));
}

QString localSocketPath(const QString &name)
{
    return name.startsWith(QLatin1Char('/'))
        ? name
        : QDir::cleanPath(QDir::tempPath()) + QLatin1Char('/') + name;
}

} // namespace base
