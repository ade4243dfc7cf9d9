// SPDX-License-Identifier: MIT
#include "statussocket/statuslistener.h"

#include "base/logtext.h"
#include "base/neighbor.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace statussocket {

namespace {

constexpr int waiting = 64; ///< connections that the kernel accepts meanwhile
/// A report fits in there as a whole, so nobody waits for a peer that doesn't read ...
constexpr int socketBuffer = 512 * 1024;
constexpr timeval readingTime{0, 100000}; ///< ... or hardly, where the system allows less

bool cannot(const QString &path, const QString &why)
{
    qWarning().noquote() << "status: can't listen on" << base::oneLine(path) << "-" << why;
    return false;
}

QString systemError()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

/**
 * Makes a folder that only this user may enter. Its parent may be open to all, so a link in its
 * place is not followed, and another user's folder not used.
 * \return why there is none, or empty
 */
QString folderProblem(const QString &path)
{
    QDir().mkpath(QFileInfo(path).path());
    const QByteArray name = QFile::encodeName(path);
    if (::mkdir(name.constData(), 0700) != 0 && errno != EEXIST) {
        return systemError();
    }
    const int folder = ::open(name.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (folder < 0) {
        return systemError();
    }
    QString problem;
    struct stat status = {};
    const bool isKnown = ::fstat(folder, &status) == 0;
    if (isKnown && status.st_uid != base::ownUser()) {
        problem = QStringLiteral("its folder belongs to ") + base::userText(status.st_uid);
    } else if (!isKnown || ::fchmod(folder, 0700) != 0) {
        problem = systemError();
    }
    ::close(folder);
    return problem;
}

bool addressOf(const QString &path, sockaddr_un *address)
{
    const QByteArray name = QFile::encodeName(path);
    *address = {};
    address->sun_family = AF_UNIX;
    if (std::size_t(name.size()) >= sizeof address->sun_path) {
        return false;
    }
    std::memcpy(address->sun_path, name.constData(), std::size_t(name.size()));
    return true;
}

const sockaddr *generic(const sockaddr_un &address)
{
    return reinterpret_cast<const sockaddr *>(&address);
}

/// Held until it is closed or the process ends. \return -1 if another one has it, or with errno
int lockedFile(const QString &path)
{
    const int file = ::open(QFile::encodeName(path).constData(),
                            O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (file >= 0 && ::flock(file, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        ::close(file);
        errno = error;
        return -1;
    }
    return file;
}

} // namespace

StatusListener::StatusListener(const QString &path, Answer answer,
                               std::chrono::milliseconds freshFor)
    : m_path(path)
    , m_answer(std::move(answer))
    , m_freshFor(freshFor)
{
    if (listen()) {
        m_stop = ::eventfd(0, EFD_CLOEXEC);
        m_thread = std::thread(&StatusListener::run, this);
    }
}

StatusListener::~StatusListener()
{
    if (m_thread.joinable()) {
        ::eventfd_write(m_stop, 1);
        m_thread.join();
        ::close(m_stop);
        ::unlink(QFile::encodeName(m_path).constData());
        ::close(m_socket);
    }
    if (m_lock >= 0) {
        ::close(m_lock);
    }
}

bool StatusListener::listen()
{
    const QString problem = folderProblem(QFileInfo(m_path).path());
    sockaddr_un address{};
    if (!problem.isEmpty()) {
        return cannot(m_path, problem);
    }
    if (!addressOf(m_path, &address)) {
        return cannot(m_path, QStringLiteral("the path is too long"));
    }
    m_lock = lockedFile(m_path + QStringLiteral(".lock"));
    if (m_lock < 0) {
        return cannot(m_path,
                      errno == EWOULDBLOCK ? QStringLiteral("another server does") : systemError());
    }
    ::unlink(address.sun_path); // left behind
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (socket < 0 || ::bind(socket, generic(address), sizeof address) != 0
        || ::chmod(address.sun_path, 0600) != 0 || ::listen(socket, waiting) != 0) {
        const QString why = systemError();
        ::close(socket);
        return cannot(m_path, why);
    }
    m_socket = socket;
    return true;
}

void StatusListener::run()
{
    for (;;) {
        pollfd watched[] = {{m_socket, POLLIN, 0}, {m_stop, POLLIN, 0}};
        if (::poll(watched, 2, -1) < 0 && errno != EINTR) {
            qWarning().noquote() << "status: stopped:" << systemError();
            return;
        }
        if (watched[1].revents != 0) {
            return;
        }
        const int peer = ::accept4(m_socket, nullptr, nullptr, SOCK_CLOEXEC);
        if (peer >= 0) {
            answer(peer);
            ::close(peer);
        } else if (errno == EMFILE || errno == ENFILE) {
            ::poll(nullptr, 0, 1000); // it would ask again at once
        }
    }
}

void StatusListener::answer(int peer)
{
    const QString problem = base::peerProblem(peer);
    if (!problem.isEmpty()) {
        m_refusals.write(QStringLiteral("a connection was refused: ") + problem);
        return;
    }
    const auto now = std::chrono::steady_clock::now();
    if (m_text.isEmpty() || now - m_made >= m_freshFor) {
        m_made = now;
        m_text = m_answer();
    }
    ::setsockopt(peer, SOL_SOCKET, SO_SNDBUF, &socketBuffer, sizeof socketBuffer);
    ::setsockopt(peer, SOL_SOCKET, SO_SNDTIMEO, &readingTime, sizeof readingTime);
    ssize_t sent = 0;
    for (int at = 0; at < m_text.size() && sent >= 0; at += int(sent)) {
        sent = ::send(peer, m_text.constData() + at, std::size_t(m_text.size() - at), MSG_NOSIGNAL);
    }
}

} // namespace statussocket
