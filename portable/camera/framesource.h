// SPDX-License-Identifier: MIT
#pragma once

#include "base/clock.h"
#include "portable/picture/adjustments.h"

#include <QString>
#include <opencv2/core.hpp>

#include <vector>

namespace portable {

/**
 * Where a camera's frames come from: hardware, files or the built-in test scene.
 *
 * Not thread-safe: one thread uses a source at a time. Errors are texts for the log and don't
 * repeat name().
 */
class FrameSource
{
public:
    FrameSource() = default;
    virtual ~FrameSource() = default;
    FrameSource(const FrameSource &) = delete;
    FrameSource &operator=(const FrameSource &) = delete;

    /// Its name in the log: a device node with the device's name, a path, or "desk scene".
    virtual QString name() const = 0;

    /// Device node of hardware, "/dev/video0", open or not; empty when it isn't there.
    virtual QString devicePath() const { return {}; }

    /**
     * Prepares for reading. A source may be opened again after close() or after a failure, which
     * leaves it closed.
     * \param wanted  size in pixels; the nearest supported one is used. Empty: the default
     */
    virtual bool open(const cv::Size &wanted, QString *error) = 0;

    /// Releases device and memory. Does nothing when closed.
    virtual void close() = 0;

    /**
     * The next frame, 8-bit BGR. Waits for hardware, a few seconds at most; sources with a
     * framesPerSecond() return immediately. A source never writes to a matrix that is still in use.
     * \param frame  empty, or memory that a picture of just this size may be put into, which saves
     *               the caller a copy; otherwise it is replaced
     */
    virtual bool read(cv::Mat &frame, QString *error) = 0;

    /// How long before the end of read() its frame was captured; 0 when that isn't known.
    virtual base::Clock::Duration age() const { return {}; }

    /// Whether skip() costs less than read().
    virtual bool canSkip() const { return false; }

    /// Waits for the next frame as read() does, and leaves it out.
    virtual bool skip(QString *error)
    {
        cv::Mat unused;
        return read(unused, error);
    }

    /// How often to call read(); 0 when read() itself waits for the next frame.
    virtual double framesPerSecond() const = 0;

    /// Supported sizes in pixels, largest first, open or not; empty when unknown.
    virtual std::vector<cv::Size> sizes() const = 0;

    /**
     * Adjusts the open source as far as its hardware allows. It opens unadjusted.
     * \return what remains to be applied to its frames
     */
    virtual Adjustments adjust(const Adjustments &wanted) { return wanted; }

    /// Makes the open source focus once. \return false when it can't focus
    virtual bool focus() { return false; }

    /// The size that open(wanted) would use; empty when unknown.
    virtual cv::Size sizeFor(const cv::Size &wanted) const;
};

/// Sorts by area, largest first, and removes duplicates.
void sortSizes(std::vector<cv::Size> &sizes);

/**
 * The size of `sizes` (sorted) nearest to `wanted`; if that is empty, the largest up to full HD: at
 * a document camera's full resolution a preview is slow on most machines.
 */
cv::Size chooseSize(const std::vector<cv::Size> &sizes, const cv::Size &wanted);

/// "1920 x 1080", for the log.
QString sizeText(const cv::Size &size);

} // namespace portable
