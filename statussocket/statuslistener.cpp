// SPDX-License-Identifier: MIT
#include "statussocket/statuslistener.h"

#include "base/logtext.h"
#include "base/neighbor.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace statussocket {

namespace {

constexpr int waiting = 8; ///< connections that the kernel accepts meanwhile
constexpr timeval readingTime{1, 0}; ///< a peer's, to take the answer

bool cannot(const QString &path, const QString &why)
{
    qWarning().noquote() << "status: can't listen on" << base::oneLine(path) << "-" << why;
    return false;
}

QString systemError()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

/// A folder that only this user may enter; makes it. \return why it isn't one, or empty
QString folderProblem(const QString &path)
{
    QDir().mkpath(QFileInfo(path).path());
    const QByteArray name = QFile::encodeName(path);
    if (::mkdir(name.constData(), 0700) != 0 && errno != EEXIST) {
        return systemError();
    }
    struct stat status = {};
    if (::lstat(name.constData(), &status) != 0) {
        return systemError();
    }
    if (!S_ISDIR(status.st_mode) || status.st_uid != base::ownUser()) {
        return QStringLiteral("%1 is not a folder of this user").arg(base::oneLine(path));
    }
    return ::chmod(name.constData(), 0700) == 0 ? QString() : systemError();
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

/// Whether somebody listens there.
bool isTaken(const sockaddr_un &address)
{
    const int probe = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const bool connects = ::connect(probe, generic(address), sizeof address) == 0
        || errno == EAGAIN; // its queue is full
    ::close(probe);
    return connects;
}

} // namespace

StatusListener::StatusListener(const QString &path, Answer answer)
    : m_path(path)
    , m_answer(std::move(answer))
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
    if (isTaken(address)) {
        return cannot(m_path, QStringLiteral("another server does"));
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
        qWarning().noquote() << "status: a connection was refused:" << problem;
        return;
    }
    ::setsockopt(peer, SOL_SOCKET, SO_SNDTIMEO, &readingTime, sizeof readingTime);
    const QByteArray text = m_answer();
    ssize_t sent = 0;
    for (int at = 0; at < text.size() && sent >= 0; at += int(sent)) {
        sent = ::send(peer, text.constData() + at, std::size_t(text.size() - at), MSG_NOSIGNAL);
    }
}

} // namespace statussocket
