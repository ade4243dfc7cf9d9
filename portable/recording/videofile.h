// SPDX-License-Identifier: MIT
/// \file Videos as files, through FFmpeg's libraries.
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
    Usual, ///< H.264, in MP4 unless the path says otherwise.
    Old, ///< MPEG-4 part 2, in AVI unless the path says otherwise: for old players.
};

/// Each picture of a video is shown for 1/25 s.
constexpr int picturesPerSecond = 25;

/// `path` if it ends in .mp4, .avi or .mkv, whatever the case; else with the format's extension.
QString videoPath(const QString &path, VideoFormat format);

/**
 * The size of a video: as asked for, each side within 16 to 4096; with a side of 0 or less that of
 * the picture, made smaller if it is too large. Always even, for colors are stored at half size.
 */
cv::Size videoSize(const cv::Size &picture, qint64 width, qint64 height);

/// The place of a picture in a frame of another shape: in the middle, as large as possible.
cv::Rect fittedInto(const cv::Size &frame, const cv::Size &picture);

/**
 * A video file that is being made, without sound. It stands under its name from the beginning and
 * what is in it plays, up to the last second, should the process be killed.
 *
 * The path's extension decides on the container (MP4, AVI, Matroska). The pictures are
 * H.264; MPEG-4 part 2 for VideoFormat::Old, in AVI, and where there is no encoder for H.264.
 *
 * An object belongs to one thread at a time.
 */
class VideoFile
{
public:
    /**
     * Opens encoder and file, making missing directories and replacing an existing file.
     * \param path  as videoPath() gives it
     * \param size  as videoSize() gives it
     * \return null, with a reason for the log that names the path, and nothing left behind
     */
    static std::unique_ptr<VideoFile> create(const QString &path, VideoFormat format,
                                             const cv::Size &size, QString *error);

    /**
     * Closes the file. An unfinished one is cut to what plays, and removed where that is not a
     * single picture.
     */
    ~VideoFile();
    VideoFile(const VideoFile &) = delete;
    VideoFile &operator=(const VideoFile &) = delete;

    /**
     * Adds a picture. After a failure there is no point in adding more.
     * \param index    when to show it: `index` / picturesPerSecond seconds from the beginning.
     *                 Grows from picture to picture; each is shown until the next.
     * \param picture  8-bit BGR of any size, gets bars where its shape differs; empty: the last one
     *                 once more
     */
    bool add(qint64 index, const cv::Mat &picture, QString *error);

    /// Writes what is still to be written. \return whether the file is whole
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
    cv::Rect m_place; // of the picture on m_canvas
    cv::Mat m_yuv; // planar 4:2:0
    qint64 m_headerSize = 0;
    qint64 m_goodSize = 0; // of the file after the last write that went well
};

} // namespace portable
