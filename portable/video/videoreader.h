// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <opencv2/core.hpp>

#include <memory>

namespace portable {

/**
 * Plays a video file from its start to its end. MP4, Matroska, AVI, MPEG and others whose decoders
 * FFmpeg has; only the file itself is read, whatever it refers to. Used by one thread at a time.
 */
class VideoReader
{
public:
    /// \return null, with a reason that doesn't name the file, when it can't be read as a video
    static std::unique_ptr<VideoReader> open(const QString &path, QString *error);

    virtual ~VideoReader() = default;
    VideoReader(const VideoReader &) = delete;
    VideoReader &operator=(const VideoReader &) = delete;

    virtual cv::Size size() const = 0; ///< In pixels, as the file says.
    virtual double framesPerSecond() const = 0; ///< 0 when the file doesn't say.

    /**
     * The next frame that can be decoded, 8-bit BGR.
     * \return false at the end, and when what follows takes longer to decode than limits::decoding
     */
    virtual bool read(cv::Mat &frame) = 0;

protected:
    VideoReader() = default;
};

} // namespace portable
