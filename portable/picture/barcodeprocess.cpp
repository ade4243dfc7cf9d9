// SPDX-License-Identifier: MIT
#include "portable/picture/barcodeprocess.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace portable {

namespace {

struct SocketPair
{
    SocketPair()
    {
        if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
            throw std::runtime_error(std::strerror(errno));
        }
    }
    int ends[2];
};

} // namespace

BarcodeProcess::BarcodeProcess()
{
    const SocketPair sockets;
    m_socket = sockets.ends[0];
    try {
        m_program = std::make_unique<HelperProgram>("barcodeworker", sockets.ends[1], -1);
    } catch (const std::exception &) {
        ::close(sockets.ends[0]);
        ::close(sockets.ends[1]);
        throw;
    }
    ::close(sockets.ends[1]);
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
    return m_program->end();
}

} // namespace portable
