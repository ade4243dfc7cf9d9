// SPDX-License-Identifier: MIT
#pragma once

#include <QFile>
#include <QString>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace portable {

/// An open device node for ioctls, independent of the stream.
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

    /// Repeats the ioctl when interrupted. \return false with errno set
    template <class Argument> bool ioctl(unsigned long request, Argument &argument) const
    {
        int result;
        do {
            result = ::ioctl(m_fd, request, &argument);
        } while (result < 0 && errno == EINTR);
        return result >= 0;
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
