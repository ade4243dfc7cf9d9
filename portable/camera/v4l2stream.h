// SPDX-License-Identifier: MIT
#pragma once

#include "base/clock.h"
#include "portable/camera/v4l2node.h"

#include <opencv2/core.hpp>

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

namespace portable {

/// What a driver has agreed to deliver.
struct V4l2FrameFormat
{
    unsigned code = 0; ///< V4L2_PIX_FMT_...
    cv::Size size;
    std::size_t bytesPerLine = 0; ///< Of the first plane; 0 of JPEGs.
};

/// A frame in the driver's memory.
struct V4l2Bytes
{
    const uchar *data = nullptr;
    std::size_t size = 0;
};

/**
 * The stream of a V4L2 node, from its start to its end. What drivers answer is checked: they make
 * mistakes, and cameras lie to them. Not thread-safe.
 */
class V4l2Stream
{
public:
    /**
     * Agrees on a format and starts the stream.
     * \param codes   formats to ask for, in this order, until the driver agrees to one we decode
     * \param wanted  empty: the driver's current size
     * \return null, with a reason, when there is none or the node can't be used
     */
    static std::unique_ptr<V4l2Stream> start(const QString &path,
                                             const std::vector<unsigned> &codes,
                                             const cv::Size &wanted, QString *error);
    ~V4l2Stream();
    V4l2Stream(const V4l2Stream &) = delete;
    V4l2Stream &operator=(const V4l2Stream &) = delete;

    const V4l2FrameFormat &format() const { return m_format; }

    enum class Next {
        Good,
        Damaged, ///< There may be others.
        None, ///< In the time, or ever again.
    };

    /// Called with a frame. \return whether it is whole
    using Use = std::function<bool(const V4l2Bytes &)>;

    /**
     * Waits for a frame. Of those that have queued up, all but the newest are dropped.
     */
    Next next(std::chrono::milliseconds wait, const Use &use);

    /// When the last frame of next() was captured, as the driver says; by the steady clock. The
    /// epoch when it doesn't.
    base::Clock::TimePoint capturedAt() const { return m_capturedAt; }

private:
    explicit V4l2Stream(const QString &path);
    bool agree(const std::vector<unsigned> &codes, const cv::Size &wanted, QString *error);
    void askForRate();
    bool mapBuffers();
    bool queue(unsigned index);

    struct Buffer
    {
        void *data;
        std::size_t length;
    };

    const V4l2Node m_node;
    V4l2FrameFormat m_format;
    base::Clock::TimePoint m_capturedAt;
    std::vector<Buffer> m_buffers; // mapped
};

} // namespace portable
