// SPDX-License-Identifier: MIT
/// \file Writes video files with FFmpeg's libraries.
#pragma once

#include <QString>
#include <opencv2/core.hpp>

#include <memory>

struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct AVStream;

namespace portable {

enum class VideoFormat {
    Standard, ///< H.264, in MP4 unless the path has another extension.
    Legacy, ///< MPEG-4 part 2 for old players, in AVI unless the path has another extension.
};

/// Frames per second of all videos.
constexpr int videoFrameRate = 25;

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
 * Writes a video file without sound. The file has its final name from the start, and if the process
 * is killed, all but the last second plays.
 *
 * The path's extension selects the container (MP4, AVI, Matroska). The codec is H.264, but MPEG-4
 * part 2 for VideoFormat::Legacy, in AVI, and where there is no H.264 encoder.
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
     * \return null, with a reason for the log that names the path, and no file left behind
     */
    static std::unique_ptr<VideoFile> create(const QString &path, VideoFormat format,
                                             const cv::Size &size, QString *error);

    /**
     * Closes the file. An unfinished one is truncated to what plays, and removed when that is
     * nothing.
     */
    ~VideoFile();
    VideoFile(const VideoFile &) = delete;
    VideoFile &operator=(const VideoFile &) = delete;

    /**
     * Adds a frame. After a failure there is no point in adding more.
     * \param index    its time in units of 1 / videoFrameRate s, increasing; it is shown until the
     *                 next one
     * \param picture  8-bit BGR of any size, letterboxed to the video's shape; empty: repeats the
     *                 last one
     */
    bool add(qint64 index, const cv::Mat &picture, QString *error);

    /// Writes what is still pending and closes the file. \return whether it is complete
    bool finish(QString *error);

    QString path() const { return m_path; }

    /// "/tmp/a.mp4, 1280 x 720, H.264", for the log.
    QString description() const;

private:
    template <class T> using Handle = std::unique_ptr<T, void (*)(T *)>;

    VideoFile(QString path, const cv::Size &size);
    bool openEncoder(const char *encoder, bool globalHeader, QString *error);
    bool openFile(QString *error);
    void draw(const cv::Mat &picture);
    bool encode(const AVFrame *frameOrNull, QString *error);
    bool write(QString *error);
    bool close(QString *error);
    int flushed();
    bool fail(int code, QString *error) const;

    const QString m_path;
    const cv::Size m_size;
    Handle<AVFormatContext> m_muxer;
    Handle<AVCodecContext> m_encoder;
    Handle<AVFrame> m_frame;
    Handle<AVPacket> m_packet;
    AVStream *m_stream = nullptr; // of m_muxer
    cv::Mat m_canvas; // BGR with bars
    cv::Rect m_place; // of the picture in m_canvas
    cv::Mat m_yuv; // planar 4:2:0
    qint64 m_headerSize = 0;
    qint64 m_goodSize = 0; // of the file after the last successful write
};

} // namespace portable
