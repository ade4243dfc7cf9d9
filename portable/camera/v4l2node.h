// SPDX-License-Identifier: MIT
#pragma once

#include <QFile>
#include <QString>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

namespace portable {

/// An open device node: its ioctls, its memory and the wait for its frames.
class V4l2Node
{
public:
    explicit V4l2Node(const QString &path)
        : m_fd(::open(QFile::encodeName(path).constData(), O_RDWR | O_NONBLOCK | O_CLOEXEC))
    {
    }
    ~V4l2Node()
    {
        if (isOpen()) {
            ::close(m_fd);
        }
    }
    V4l2Node(const V4l2Node &) = delete;
    V4l2Node &operator=(const V4l2Node &) = delete;

    bool isOpen() const { return m_fd >= 0; } ///< If not, errno has the reason.

    int descriptor() const { return m_fd; } ///< To be waited for; stays this object's.

    /// Repeats the ioctl when interrupted. \return false with errno set
    template <class Argument> bool ioctl(unsigned long request, Argument &argument) const
    {
        int result;
        do {
            result = ::ioctl(m_fd, request, &argument);
        } while (result < 0 && errno == EINTR);
        return result >= 0;
    }

    /// Waits until a buffer can be dequeued. \return false when none can be in that time, or ever
    bool waitForFrame(std::chrono::milliseconds time) const
    {
        const auto deadline = std::chrono::steady_clock::now() + time;
        pollfd wait{m_fd, POLLIN, 0};
        int result;
        do {
            result = ::poll(&wait, 1, int(time.count()));
            time = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
        } while (result < 0 && errno == EINTR && time.count() > 0);
        return result > 0 && (wait.revents & POLLIN) != 0;
    }

    /// A buffer's memory, to be read; munmap() ends it. \return null with errno set
    void *map(std::size_t length, unsigned offset) const
    {
        void *data = ::mmap(nullptr, length, PROT_READ, MAP_SHARED, m_fd, off_t(offset));
        return data == MAP_FAILED ? nullptr : data;
    }

private:
    const int m_fd;
};

/// A zeroed argument for an ioctl; the kernel requires reserved fields to be 0.
template <class Argument> Argument zeroed()
{
    Argument argument;
    std::memset(&argument, 0, sizeof argument);
    return argument;
}

} // namespace portable
