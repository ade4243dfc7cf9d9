// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <opencv2/core.hpp>

#include <functional>
#include <vector>

namespace portable {

/// A camera of this machine that video can be captured from.
struct V4l2Device
{
    QString path; ///< Its node, "/dev/video0".
    QString name; ///< What the driver calls it.
    QString usbIds; ///< "vid:pid", four lower-case hexadecimal digits each; empty without USB.
    QString bus; ///< Where it is plugged in, as the driver says; empty when not to be had.

    /// For the log: "/dev/video0 (HD Camera, 0c45:6366)".
    QString label() const;
};

using V4l2Devices = std::vector<V4l2Device>;
using V4l2Lister = std::function<V4l2Devices()>;

/**
 * The cameras of this machine in the order of their nodes. A node that may not be opened, for lack
 * of permission, is listed too: that it can't be used is said when it is started.
 */
V4l2Devices listV4l2Devices();

/**
 * The camera that a source text means.
 * \param text  a path (of the node or of a link to it), or part of the name or of vid:pid
 * \return null when there is none
 */
const V4l2Device *findV4l2Device(const V4l2Devices &devices, const QString &text);

/// The labels of `devices`, for the log; "none" without any.
QString v4l2Labels(const V4l2Devices &devices);

/// What is known of a node beyond VideoCapture's reach.
struct V4l2Formats
{
    std::vector<cv::Size> sizes; ///< The largest first; those of MJPEG where there is MJPEG.
    bool hasMjpeg = false;
};
V4l2Formats v4l2Formats(const QString &path);

/// Why the node can't be used just now (gone, busy, no permission, ...); empty when it seems fine.
QString v4l2Obstacle(const QString &path);

} // namespace portable
