// SPDX-License-Identifier: MIT
#include "portable/video/videomodule.h"

#include "portable/base/module.h"
#include "portable/base/writecheck.h"

namespace portable {

namespace {

/// Loaded when it is first needed: FFmpeg's libraries are more than all others together.
const VideoModule *videoModule(QString *error)
{
    return static_cast<const VideoModule *>(
        symbolOfModule(QStringLiteral("libportablevideo.so"), "portableVideo", error));
}

} // namespace

std::unique_ptr<VideoFile> VideoFile::create(const QString &path, VideoFormat format,
                                             const cv::Size &size, bool withSound, QString *error)
{
    // Before anything is changed on the disk.
    if (!canWriteFile(path, error)) {
        return nullptr;
    }
    const VideoModule *module = videoModule(error);
    return module ? module->create(path, format, size, withSound, error) : nullptr;
}

std::unique_ptr<VideoReader> VideoReader::open(const QString &path, QString *error)
{
    const VideoModule *module = videoModule(error);
    return module ? module->open(path, error) : nullptr;
}

std::unique_ptr<Microphone> Microphone::open(const QString &choice, QString *error)
{
    const VideoModule *module = videoModule(error);
    return module ? module->openMicrophone(choice, error) : nullptr;
}

} // namespace portable
