// SPDX-License-Identifier: MIT
/// \file V4L2 and input devices for tests: files and FIFOs whose ioctls the test program answers.
#pragma once

#include "tests/portabletest.h"

#include <linux/videodev2.h>
#include <opencv2/core.hpp>
#include <poll.h>

#include <deque>
#include <map>
#include <set>
#include <vector>

struct FakeControl
{
    int minimum, maximum, step, defaultValue, value;
    unsigned flags = 0;
    unsigned type = V4L2_CTRL_TYPE_INTEGER;
    const char *name = "";
};

struct FakeFormat
{
    unsigned pixelFormat;
    std::vector<cv::Size> sizes; ///< Of a range: smallest, largest, step.
    bool isRange = false;
};

/// What becomes of one buffer.
struct FakeFrame
{
    QByteArray bytes;
    unsigned flags = 0;
    int surplus = 0; ///< That many bytes more than the buffer has are claimed.
    int error = 0; ///< Of dequeuing it; 0: none.
    unsigned wrongIndex = 0; ///< Is added.
};

/// A V4L2 driver behind one node.
struct FakeDriver
{
    static constexpr unsigned buffers = 3;
    static constexpr unsigned bufferLength = 65536;

    QByteArray name;
    unsigned capabilities = V4L2_CAP_VIDEO_CAPTURE;
    std::vector<FakeFormat> formats;
    std::map<unsigned, FakeControl> controls;
    int streamError = 0; ///< Of setting the format; 0: none.
    QStringList changes; ///< "control=value"
    std::vector<int> keys; ///< Of an input device.

    unsigned answeredCode = 0; ///< To any format asked for; 0: the same.
    cv::Size answeredSize{-1, -1}; ///< So: the one asked for.
    unsigned bytesPerLine = 0;
    unsigned length = bufferLength;
    std::deque<std::vector<FakeFrame>> ready; ///< What each wait finds; nothing: its end.
    std::vector<unsigned> queued;
    bool isGone = false; ///< At the end of what is ready.
    bool streams = false;
    QString path;
    std::set<unsigned> subscribed; ///< Controls.

    /// poll(), which finds what is ready and goes on to the next of it.
    int wait(pollfd *wait, int milliseconds);

    /// \return 0 or an errno
    int answer(unsigned long request, void *argument);

private:
    int dequeue(v4l2_buffer *buffer);
    int describe(v4l2_capability *capability) const;
    int enumerate(v4l2_fmtdesc *format) const;
    int enumerate(v4l2_frmsizeenum *size) const;
    int query(v4l2_queryctrl *query) const;
    int access(v4l2_format *format, bool isSet);
    int access(v4l2_control *control, bool isSet);

    bool isBegun = false;
};

/// A folder of nodes.
class FakeV4l2Test : public PortableTest
{
    Q_OBJECT

protected Q_SLOTS:
    void init();

protected:
    /// The driver of a node, which is made when it is missing.
    FakeDriver &node(const char *name);

    /// The driver of a file, which needn't be there yet.
    static FakeDriver &driverOf(const QString &path);

    /// What has been set since the last call.
    static QString taken(FakeDriver &driver);

    /// That many calls to drivers are interrupted by a signal.
    static void interruptCalls(int count);
};
