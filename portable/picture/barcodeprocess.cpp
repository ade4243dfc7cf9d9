// SPDX-License-Identifier: MIT
#include "portable/picture/barcodeprocess.h"

#include "portable/base/module.h"

#include <QFile>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <string>

namespace portable {

namespace {

/// Starts the program with `socket` as its standard input. \return an error number, 0 for none
int start(const QByteArray &path, int socket, pid_t *process)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, socket, STDIN_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none); // threads of the server block some
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    QByteArray name = path;
    char *arguments[] = {name.data(), nullptr};
    const int error =
        posix_spawn(process, path.constData(), &actions, &attributes, arguments, environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

[[noreturn]] void fail(const QByteArray &path, int error)
{
    throw std::runtime_error(path.toStdString() + ": " + std::strerror(error));
}

} // namespace

BarcodeProcess::BarcodeProcess()
{
    const QByteArray path = QFile::encodeName(besideLibrary(QStringLiteral("barcodeworker")));
    int sockets[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets) != 0) {
        fail(path, errno);
    }
    const int error = start(path, sockets[1], &m_process);
    ::close(sockets[1]);
    if (error != 0) {
        ::close(sockets[0]);
        fail(path, error);
    }
    m_socket = sockets[0];
}

BarcodeProcess::~BarcodeProcess()
{
    end();
    ::close(m_socket);
}

bool BarcodeProcess::isReady() const
{
    pollfd socket{m_socket, POLLIN, 0}; // it says nothing unasked
    return ::poll(&socket, 1, 0) == 0;
}

bool BarcodeProcess::send(const BarcodeRequest &request, int file)
{
    BarcodeRequest copy = request;
    iovec part{&copy, sizeof copy};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof file)] = {};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr *header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof file);
    std::memcpy(CMSG_DATA(header), &file, sizeof file);
    return ::sendmsg(m_socket, &message, MSG_NOSIGNAL) == ssize_t(sizeof copy);
}

BarcodeProcess::Reception BarcodeProcess::receive(Clock::time_point deadline, QByteArray *message)
{
    pollfd socket{m_socket, POLLIN, 0};
    int ready = 0;
    do {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        ready = ::poll(&socket, 1, int(std::max<qint64>(0, left)));
    } while (ready < 0 && errno == EINTR);
    if (ready == 0) {
        return Reception::Late;
    }
    message->resize(int(largestBarcodeReply));
    const ssize_t size = ::recv(m_socket, message->data(), size_t(message->size()), MSG_DONTWAIT);
    message->resize(int(std::max<ssize_t>(size, 0)));
    return size > 0 ? Reception::Message : Reception::Ended;
}

QString BarcodeProcess::end()
{
    if (m_process == 0) {
        return {};
    }
    int status = 0;
    ::kill(m_process, SIGKILL); // changes nothing for one that has ended
    while (::waitpid(m_process, &status, 0) < 0 && errno == EINTR) { }
    m_process = 0;
    return WIFSIGNALED(status) ? QStringLiteral("signal %1 (%2)")
                                     .arg(WTERMSIG(status))
                                     .arg(QString::fromLocal8Bit(::strsignal(WTERMSIG(status))))
                               : QStringLiteral("exit code %1").arg(WEXITSTATUS(status));
}

} // namespace portable
