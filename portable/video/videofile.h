// SPDX-License-Identifier: MIT
#pragma once

#include "portable/video/sound.h"

#include <QString>
#include <opencv2/core.hpp>

#include <memory>

namespace portable {

enum class VideoFormat {
    Standard, ///< H.264, in MP4 unless the path has another extension.
    Legacy, ///< MPEG-4 part 2 for old players, in AVI unless the path has another extension.
};

/// Frames per second of all videos.
constexpr int videoFrameRate = 25;

/// How far the sound of a video may be behind its pictures before it is taken for missing.
constexpr std::chrono::milliseconds soundPatience{1000};

/// The muxer of FFmpeg for a path's extension; null for any but .mp4, .avi and .mkv.
const char *videoMuxer(const QString &path);

/// `path` if it ends in .mp4, .avi or .mkv, in any case; else with the format's extension added.
QString videoPath(const QString &path, VideoFormat format);

/**
 * The size of a video: as requested, each side clamped to 16..4096; if a side is 0 or less, the
 * size of the picture, scaled down if it is too large. Always even: 4:2:0 halves the color planes.
 */
cv::Size videoSize(const cv::Size &picture, qint64 width, qint64 height);

/// Where a picture goes in a frame of another aspect ratio: centered, as large as fits.
cv::Rect fitInto(const cv::Size &frame, const cv::Size &picture);

/**
 * Writes a video file, with sound or without. The file has its final name from the start, and if
 * the process is killed, all but the last second plays.
 *
 * The path's extension selects the container (MP4, AVI, Matroska). The codecs are H.264 and AAC,
 * but MPEG-4 part 2 and MP3 for VideoFormat::Legacy and in AVI. Where an encoder is missing,
 * MPEG-4, and AAC or MP3.
 *
 * Not thread-safe: one thread uses an object at a time.
 */
class VideoFile
{
public:
    /**
     * Opens encoder and file, creating missing directories and replacing an existing file.
     * \param path  from videoPath()
     * \param size  from videoSize()
     * \param withSound  whether addSound() will be called; without an encoder it does nothing
     * \return null, with a reason for the log that names the path, and no file left behind
     */
    static std::unique_ptr<VideoFile> create(const QString &path, VideoFormat format,
                                             const cv::Size &size, bool withSound, QString *error);

    /**
     * Closes the file. An unfinished one is truncated to what plays, and removed when that is
     * nothing.
     */
    virtual ~VideoFile() = default;
    VideoFile(const VideoFile &) = delete;
    VideoFile &operator=(const VideoFile &) = delete;

    /**
     * Adds a frame. After a failure there is no point in adding more.
     * \param index    its time in units of 1 / videoFrameRate s, increasing; it is shown until the
     *                 next one
     * \param picture  8-bit BGR of any size, letterboxed to the video's shape; empty: repeats the
     *                 last one
     */
    virtual bool add(qint64 index, const cv::Mat &picture, QString *error) = 0;

    /**
     * Adds sound, in the order of its time. What is missing, or comes more than soundPatience after
     * the picture of its time, becomes silence.
     * \param at  time of the first sample in the video
     */
    virtual bool addSound(base::Clock::Duration at, const Samples &samples, QString *error) = 0;

    /// Writes what is still pending and closes the file. \return whether it is complete
    virtual bool finish(QString *error) = 0;

    virtual QString path() const = 0;

    /// "/tmp/a.mp4, 1280 x 720, H.264, AAC", for the log.
    virtual QString description() const = 0;

protected:
    VideoFile() = default;
};

} // namespace portable
