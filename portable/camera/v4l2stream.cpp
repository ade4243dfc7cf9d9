// SPDX-License-Identifier: MIT
// For the ioctls see the kernel's "Video for Linux API", "Streaming I/O (Memory Mapping)".
#include "portable/camera/v4l2stream.h"

#include "portable/base/failure.h"
#include "portable/camera/v4l2pixels.h"

#include <linux/videodev2.h>
#include <sys/mman.h>

#include <algorithm>
#include <optional>

namespace portable {

namespace {

constexpr unsigned framesPerSecond = 30; // cameras deliver up to this
constexpr unsigned bufferCount = 4; // one is decoded while others are filled

/// A buffer as the ioctls take it.
v4l2_buffer bufferAt(unsigned index)
{
    auto buffer = zeroed<v4l2_buffer>();
    buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buffer.memory = V4L2_MEMORY_MMAP;
    buffer.index = index;
    return buffer;
}

/// When a buffer was filled; the epoch if the driver doesn't say by which clock.
base::Clock::TimePoint timeOf(const v4l2_buffer &buffer)
{
    if ((buffer.flags & V4L2_BUF_FLAG_TIMESTAMP_MASK) != V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC) {
        return {};
    }
    return base::Clock::TimePoint(std::chrono::seconds(buffer.timestamp.tv_sec)
                                  + std::chrono::microseconds(buffer.timestamp.tv_usec));
}

/// "YUYV"
QString codeText(unsigned code)
{
    QString text;
    for (int shift = 0; shift < 32; shift += 8) {
        text += QLatin1Char(char(code >> shift));
    }
    return text.trimmed();
}

} // namespace

std::unique_ptr<V4l2Stream> V4l2Stream::start(const QString &path,
                                              const std::vector<unsigned> &codes,
                                              const cv::Size &wanted, QString *error)
{
    std::unique_ptr<V4l2Stream> stream(new V4l2Stream(path)); // the constructor is private
    if (!stream->m_node.isOpen()) {
        setError(qt_error_string(errno), error);
        return nullptr;
    }
    if (!stream->agree(codes, wanted, error)) {
        return nullptr;
    }
    stream->askForRate();
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (!stream->mapBuffers() || !stream->m_node.ioctl(VIDIOC_STREAMON, type)) {
        setError(QStringLiteral("it can't stream: ") + qt_error_string(errno), error);
        return nullptr;
    }
    return stream;
}

V4l2Stream::V4l2Stream(const QString &path)
    : m_node(path)
{
}

V4l2Stream::~V4l2Stream()
{
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    m_node.ioctl(VIDIOC_STREAMOFF, type);
    for (const Buffer &buffer : m_buffers) {
        ::munmap(buffer.data, buffer.length);
    }
}

/// Drivers answer with the format that is nearest to the one asked for, which may be any.
bool V4l2Stream::agree(const std::vector<unsigned> &codes, const cv::Size &wanted, QString *error)
{
    auto current = zeroed<v4l2_format>();
    current.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    m_node.ioctl(VIDIOC_G_FMT, current);
    QString reason = QStringLiteral("it has no pixel format");
    for (const unsigned code : codes) {
        v4l2_format asked = current;
        asked.fmt.pix.pixelformat = code;
        asked.fmt.pix.field = V4L2_FIELD_ANY;
        asked.fmt.pix.bytesperline = 0; // as the driver likes
        asked.fmt.pix.sizeimage = 0;
        if (!wanted.empty()) {
            asked.fmt.pix.width = unsigned(wanted.width);
            asked.fmt.pix.height = unsigned(wanted.height);
        }
        if (!m_node.ioctl(VIDIOC_S_FMT, asked)) {
            reason = qt_error_string(errno);
            continue;
        }
        const v4l2_pix_format &pix = asked.fmt.pix;
        if (decodableFormat(pix.pixelformat, pix.width, pix.height, pix.bytesperline, &m_format)) {
            return true;
        }
        reason = QStringLiteral("its format %1 of %2 x %3 can't be decoded")
                     .arg(codeText(pix.pixelformat))
                     .arg(pix.width)
                     .arg(pix.height);
    }
    return setError(reason, error);
}

void V4l2Stream::askForRate()
{
    auto parameters = zeroed<v4l2_streamparm>();
    parameters.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (m_node.ioctl(VIDIOC_G_PARM, parameters)
        && (parameters.parm.capture.capability & V4L2_CAP_TIMEPERFRAME) != 0) {
        parameters.parm.capture.timeperframe = {1, framesPerSecond};
        m_node.ioctl(VIDIOC_S_PARM, parameters); // where it fails, the camera's own rate
    }
}

/// \return false with errno set
bool V4l2Stream::mapBuffers()
{
    auto request = zeroed<v4l2_requestbuffers>();
    request.count = bufferCount;
    request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    request.memory = V4L2_MEMORY_MMAP;
    if (!m_node.ioctl(VIDIOC_REQBUFS, request)) {
        return false;
    }
    const unsigned count = std::min(request.count, unsigned(VIDEO_MAX_FRAME));
    for (unsigned i = 0; i < count; ++i) {
        v4l2_buffer buffer = bufferAt(i);
        if (!m_node.ioctl(VIDIOC_QUERYBUF, buffer)) {
            return false;
        }
        void *data = m_node.map(buffer.length, buffer.m.offset);
        if (!data) {
            return false;
        }
        m_buffers.push_back({data, buffer.length});
        if (!queue(i)) {
            return false;
        }
    }
    errno = ENOBUFS;
    return count > 0;
}

/// Gives a buffer to the driver, to be filled.
bool V4l2Stream::queue(unsigned index)
{
    v4l2_buffer buffer = bufferAt(index);
    return m_node.ioctl(VIDIOC_QBUF, buffer);
}

V4l2Stream::Next V4l2Stream::next(std::chrono::milliseconds wait, const Use &use)
{
    if (!m_node.waitForFrame(wait)) {
        return Next::None;
    }
    std::optional<v4l2_buffer> newest;
    for (std::size_t i = 0; i < m_buffers.size(); ++i) {
        v4l2_buffer buffer = bufferAt(0);
        if (!m_node.ioctl(VIDIOC_DQBUF, buffer)) {
            if (errno == EAGAIN || errno == EIO) { // none is left; one is lost
                break;
            }
            return Next::None;
        }
        if (buffer.index >= m_buffers.size()) {
            continue;
        }
        if ((buffer.flags & V4L2_BUF_FLAG_ERROR) != 0
            || buffer.bytesused > m_buffers[buffer.index].length) {
            queue(buffer.index);
            continue;
        }
        if (newest) {
            queue(newest->index);
        }
        newest = buffer;
    }
    if (!newest) {
        return Next::Damaged;
    }
    m_capturedAt = timeOf(*newest);
    const auto *data = static_cast<const uchar *>(m_buffers[newest->index].data);
    const bool isWhole = use({data, newest->bytesused});
    queue(newest->index); // where it fails, the next wait does
    return isWhole ? Next::Good : Next::Damaged;
}

} // namespace portable
