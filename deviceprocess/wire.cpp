// SPDX-License-Identifier: MIT
#include "deviceprocess/wire.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace deviceprocess {

namespace {

using Clock = std::chrono::steady_clock;

struct Header
{
    std::uint32_t kind;
    std::uint32_t function;
    std::uint64_t length;
    std::uint64_t released;
};

/// Room for the control data of one descriptor.
union Control {
    cmsghdr header;
    char bytes[CMSG_SPACE(sizeof(int))];
};

/// Milliseconds until then, for poll(); -1 for the end of time.
int pollTime(Clock::time_point until)
{
    if (until == Clock::time_point::max()) {
        return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
    return int(std::clamp<std::int64_t>(left, 0, std::int64_t(3600) * 1000));
}

Received waitFor(int socket, short events, Clock::time_point until)
{
    pollfd waiting{socket, events, 0};
    for (;;) {
        const int ready = poll(&waiting, 1, pollTime(until));
        if (ready > 0) {
            return Received::Message;
        }
        if (ready < 0 && errno != EINTR) {
            return Received::Closed;
        }
        if (ready == 0 && Clock::now() >= until) {
            return Received::TimedOut;
        }
    }
}

/// Takes the descriptor out of a received message; further ones are closed.
void takeDescriptor(msghdr *received, int *descriptor)
{
    for (cmsghdr *control = CMSG_FIRSTHDR(received); control;
         control = CMSG_NXTHDR(received, control)) {
        if (control->cmsg_level == SOL_SOCKET && control->cmsg_type == SCM_RIGHTS) {
            closeDescriptor(descriptor);
            std::memcpy(descriptor, CMSG_DATA(control), sizeof *descriptor);
        }
    }
}

/// Reads exactly `size` bytes. \param descriptor  where one that comes along is put
Received readExactly(int socket, char *data, std::size_t size, Clock::time_point until,
                     int *descriptor)
{
    // Every system call counts in a preview: no poll() where bytes are there already, nor without a
    // limit to watch.
    const int waiting = until == Clock::time_point::max() ? 0 : MSG_DONTWAIT;
    std::size_t done = 0;
    while (done < size) {
        iovec part{data + done, size - done};
        Control control;
        msghdr received{};
        received.msg_iov = &part;
        received.msg_iovlen = 1;
        received.msg_control = control.bytes;
        received.msg_controllen = sizeof control.bytes;
        const ssize_t got = recvmsg(socket, &received, MSG_CMSG_CLOEXEC | waiting);
        if (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR)) {
            return Received::Closed;
        }
        if (got > 0) {
            takeDescriptor(&received, descriptor);
            done += std::size_t(got);
        } else if (errno == EAGAIN) {
            const Received ready = waitFor(socket, POLLIN, until);
            if (ready != Received::Message) {
                return ready;
            }
        }
    }
    return Received::Message;
}

/// Takes memory as bytes come, not because a header says so.
Received readBody(int socket, std::size_t size, Clock::time_point until, Message *message)
{
    constexpr std::size_t firstStep = 1 << 20;
    message->body.clear();
    std::size_t done = 0;
    Received result = Received::Message;
    while (result == Received::Message && done < size) {
        const std::size_t step = std::min(size - done, std::max(done, firstStep));
        message->body.resize(int(done + step));
        result =
            readExactly(socket, message->body.data() + done, step, until, &message->descriptor);
        done += step;
    }
    return result;
}

} // namespace

bool sendMessage(int socket, MessageKind kind, std::uint32_t function, const Writer &content,
                 Clock::time_point until, std::uint64_t released)
{
    const Header header{std::uint32_t(kind), function, std::uint64_t(content.body().size()),
                        released};
    iovec parts[2] = {
        {const_cast<Header *>(&header), sizeof header},
        {const_cast<char *>(content.body().constData()), std::size_t(content.body().size())}};
    Control control;
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    if (content.descriptor() >= 0) {
        message.msg_control = control.bytes;
        message.msg_controllen = sizeof control.bytes;
        cmsghdr *rights = CMSG_FIRSTHDR(&message);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(sizeof(int));
        const int descriptor = content.descriptor();
        std::memcpy(CMSG_DATA(rights), &descriptor, sizeof descriptor);
    }
    while (message.msg_iovlen > 0) {
        const ssize_t sent = sendmsg(socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && errno == EAGAIN) {
            if (waitFor(socket, POLLOUT, until) != Received::Message) {
                return false;
            }
        } else if (sent < 0 && errno != EINTR) {
            return false;
        }
        auto left = std::size_t(std::max<ssize_t>(sent, 0));
        if (left > 0) { // the descriptor goes with the first byte
            message.msg_control = nullptr;
            message.msg_controllen = 0;
        }
        while (message.msg_iovlen > 0 && left >= message.msg_iov->iov_len) {
            left -= message.msg_iov->iov_len;
            ++message.msg_iov;
            --message.msg_iovlen;
        }
        if (message.msg_iovlen > 0) {
            message.msg_iov->iov_base = static_cast<char *>(message.msg_iov->iov_base) + left;
            message.msg_iov->iov_len -= left;
        }
    }
    return true;
}

Received receiveMessage(int socket, Message *message, Clock::time_point until)
{
    closeDescriptor(&message->descriptor);
    Header header{};
    Received result = readExactly(socket, reinterpret_cast<char *>(&header), sizeof header, until,
                                  &message->descriptor);
    if (result != Received::Message) {
        return result;
    }
    if (header.length > maxBody) {
        return Received::Invalid;
    }
    message->kind = MessageKind(header.kind);
    message->function = header.function;
    message->released = header.released;
    return readBody(socket, std::size_t(header.length), until, message);
}

bool waitReadable(int socket, Clock::time_point until)
{
    return waitFor(socket, POLLIN, until) != Received::TimedOut;
}

bool makeSocketPair(int sockets[2])
{
    return socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) == 0;
}

void closeDescriptor(int *descriptor)
{
    if (*descriptor >= 0) {
        close(*descriptor);
        *descriptor = -1;
    }
}

} // namespace deviceprocess
