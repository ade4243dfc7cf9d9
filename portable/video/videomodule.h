// SPDX-License-Identifier: MIT
/// \file What the library and its module for videos have in common.
#pragma once

#include "portable/video/microphone.h"
#include "portable/video/videofile.h"
#include "portable/video/videoreader.h"

namespace portable {

/// What libportablevideo.so exports as `portableVideo`: VideoFile::create(), VideoReader::open(),
/// Microphone::open().
struct VideoModule
{
    std::unique_ptr<VideoFile> (*create)(const QString &path, VideoFormat format,
                                         const cv::Size &size, bool withSound, QString *error);
    std::unique_ptr<VideoReader> (*open)(const QString &path, QString *error);
    std::unique_ptr<Microphone> (*openMicrophone)(const QString &choice, QString *error);
};

} // namespace portable
