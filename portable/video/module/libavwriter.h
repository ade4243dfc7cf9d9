// SPDX-License-Identifier: MIT
#pragma once

#include "portable/video/module/libavsound.h"
#include "portable/video/videofile.h"

namespace portable {

class LibavWriter : public VideoFile
{
public:
    /// VideoFile::create() of a path that can be written.
    static std::unique_ptr<VideoFile> create(const QString &path, VideoFormat format,
                                             const cv::Size &size, bool withSound, QString *error);
    ~LibavWriter() override;

    bool add(qint64 index, const cv::Mat &picture, QString *error) override;
    bool addSound(base::Clock::Duration at, const Samples &samples, QString *error) override;
    bool finish(QString *error) override;
    QString path() const override { return m_path; }
    QString description() const override;

private:
    LibavWriter(QString path, const cv::Size &size);
    bool openEncoder(const char *encoder, bool globalHeader, QString *error);
    void openSound(bool isMp3First, bool globalHeader);
    bool openFile(QString *error);
    AVStream *newStream(const AVCodecContext *encoder);
    void draw(const cv::Mat &picture);
    bool encode(const AVFrame *frameOrNull, QString *error);
    int write(AVPacket *packet, const AVCodecContext *encoder, const AVStream *stream);
    bool close(QString *error);
    int flushed();
    bool fail(int code, QString *error) const;

    const QString m_path;
    const cv::Size m_size;
    libav::Handle<AVFormatContext> m_muxer;
    libav::Handle<AVCodecContext> m_encoder;
    libav::Handle<AVFrame> m_frame;
    libav::Handle<AVPacket> m_packet;
    AVStream *m_stream = nullptr; // of m_muxer
    std::unique_ptr<LibavSound> m_sound; // null: the video is silent
    AVStream *m_soundStream = nullptr; // of m_muxer
    qint64 m_count = 0; // the time after the last frame
    cv::Mat m_canvas; // BGR with bars
    cv::Rect m_place; // of the picture in m_canvas
    cv::Mat m_yuv; // planar 4:2:0
    qint64 m_headerSize = 0;
    qint64 m_goodSize = 0; // of the file after the last successful write
};

} // namespace portable
