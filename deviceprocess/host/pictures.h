// SPDX-License-Identifier: MIT
#pragma once

#include "deviceprocess/pictureheader.h"
#include "deviceprocess/wire.h"

#include <QImage>
#include <opencv2/core.hpp>

#include <map>
#include <mutex>

namespace deviceprocess {

class SharedMemory;

/**
 * Pictures on their way to the server. Those in shared memory are held until the server gives them
 * back: their makers don't write to what somebody holds. Callable from any thread.
 */
class Pictures
{
public:
    /// As many may be held at once; further ones are copied into the message.
    static constexpr std::size_t maxHeld = 64;

    /// \param memory  outlives this object
    explicit Pictures(const SharedMemory &memory)
        : m_memory(memory)
    {
    }

    void write(Writer &writer, const cv::Mat &picture);
    void write(Writer &writer, const QImage &picture);

    /// The server doesn't need it any more. \param held  as write() gave it
    void release(std::uint64_t held);

private:
    /// Keeps a picture alive, whichever kind it is.
    struct Held
    {
        cv::Mat matrix;
        QImage image;
    };

    bool writeShared(Writer &writer, PictureHeader header, const uchar *pixels, Held held);

    const SharedMemory &m_memory;
    std::mutex m_mutex;
    std::map<std::uint64_t, Held> m_held; // guarded by m_mutex, as all below
    std::uint64_t m_lastHeld = 0;
};

} // namespace deviceprocess
