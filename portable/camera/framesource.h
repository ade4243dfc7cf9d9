// SPDX-License-Identifier: MIT
#pragma once

#include "portable/picture/adjustments.h"

#include <QString>
#include <opencv2/core.hpp>

#include <vector>

namespace portable {

/**
 * Where a camera's pictures come from: hardware, files or the built-in scene.
 *
 * A source is used by one thread at a time and need not be safe for more. Errors are texts for the
 * log; they don't repeat name().
 */
class FrameSource
{
public:
    FrameSource() = default;
    virtual ~FrameSource() = default;
    FrameSource(const FrameSource &) = delete;
    FrameSource &operator=(const FrameSource &) = delete;

    /// What the log calls it: a device with its name, a path, "desk scene".
    virtual QString name() const = 0;

    /// Of hardware: its node, "/dev/video0", open or not; empty when it isn't there.
    virtual QString devicePath() const { return {}; }

    /**
     * Makes ready to read. A closed source may be opened again; what is not there now may have come
     * by then. A failed open leaves it closed.
     * \param wanted  size in pixels, the nearest possible one is taken; empty: the usual one
     */
    virtual bool open(const cv::Size &wanted, QString *error) = 0;

    /// Lets go of device and memory. Does nothing when closed.
    virtual void close() = 0;

    /**
     * The next picture, 8-bit BGR. Waits for hardware, a few seconds at most; sources with a
     * framesPerSecond() answer at once. The source never writes to a matrix that others still hold.
     */
    virtual bool read(cv::Mat &frame, QString *error) = 0;

    /// How often to read in a second; 0 for a source that sets its own pace.
    virtual double framesPerSecond() const = 0;

    /// Possible sizes in pixels, the largest first; also while closed. Empty when not to be had.
    virtual std::vector<cv::Size> sizes() const = 0;

    /**
     * Adjusts the open source, as far as its hardware can be. It opens unadjusted.
     * \return what is left to be done to its pictures
     */
    virtual Adjustments adjust(const Adjustments &wanted) { return wanted; }

    /// Lets the open source focus once. \return false when it has no focus to set
    virtual bool focus() { return false; }

    /// The size that open(wanted) asks for; empty when not to be had.
    virtual cv::Size sizeFor(const cv::Size &wanted) const;
};

/// Sorts by area, the largest first, and drops what stands there twice.
void sortSizes(std::vector<cv::Size> &sizes);

/**
 * The size of `sizes` (sorted) nearest to `wanted`. Without a wish the largest that is not above
 * full HD: a preview in a document camera's full resolution is slow on most machines.
 */
cv::Size chooseSize(const std::vector<cv::Size> &sizes, const cv::Size &wanted);

/// "1920 x 1080", for the log.
QString sizeText(const cv::Size &size);

} // namespace portable
