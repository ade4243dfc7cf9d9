// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <opencv2/core.hpp>

#include <functional>
#include <utility>
#include <vector>

namespace portable {

/// A capture device of this machine.
struct V4l2Device
{
    QString path; ///< Device node, "/dev/video0".
    QString name; ///< As the driver reports it.
    QString usbIds; ///< "vid:pid", four lower-case hexadecimal digits each; empty without USB.
    QString bus; ///< Port, as the driver reports it; empty when unknown.

    /// For the log: "/dev/video0 (HD Camera, 0c45:6366)".
    QString label() const;
};

using V4l2Devices = std::vector<V4l2Device>;
using V4l2Lister = std::function<V4l2Devices()>;

/**
 * The cameras of this machine in the order of their nodes. Includes nodes that can't be opened for
 * lack of permission; starting them reports that.
 */
V4l2Devices listV4l2Devices();

/// The same with other folders in place of /dev and /sys.
V4l2Devices v4l2DevicesIn(const QString &dev, const QString &sysfs);

/**
 * The camera that a source text refers to.
 * \param text  path of the node or of a link to it, or part of the name or of vid:pid
 * \return null when there is none
 */
const V4l2Device *findV4l2Device(const V4l2Devices &devices, const QString &text);

/// The labels of `devices`, for the log; "none" without any.
QString v4l2Labels(const V4l2Devices &devices);

/// What a node offers.
struct V4l2Formats
{
    /// Those we decode (V4L2_PIX_FMT_...), best first, each with its sizes, which it may not list.
    std::vector<std::pair<unsigned, std::vector<cv::Size>>> all;
    std::vector<cv::Size> sizes; ///< Largest first; those of MJPEG if it has any.

    /// What to ask for, in this order: formats that list the size come first.
    std::vector<unsigned> codesFor(const cv::Size &size) const;
};
V4l2Formats v4l2Formats(const QString &path);

/// Why the node can't be used now (unplugged, busy, no permission); empty when it seems fine.
QString v4l2Obstacle(const QString &path);

} // namespace portable
