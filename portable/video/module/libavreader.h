// SPDX-License-Identifier: MIT
#pragma once

#include "portable/base/filereader.h"
#include "portable/picture/framepool.h"
#include "portable/video/module/libav.h"
#include "portable/video/videoreader.h"

#include <chrono>

struct SwsContext;

namespace portable {

class LibavReader : public VideoReader
{
public:
    /// VideoReader::open()
    static std::unique_ptr<VideoReader> open(const QString &path, QString *error);
    ~LibavReader() override;

    cv::Size size() const override;
    double framesPerSecond() const override;
    bool read(cv::Mat &frame) override;

private:
    LibavReader();
    bool openContainer(QString *error);
    int readStreams();
    bool openDecoder(QString *error);
    bool decode();
    bool sendPacket();
    bool convert(cv::Mat &frame);
    void startTime();
    bool isLate() const;
    static int readBytes(void *self, uint8_t *bytes, int size);
    static int64_t seek(void *self, int64_t offset, int whence);

    RegularFile m_file;
    std::chrono::steady_clock::time_point m_deadline;
    libav::Handle<AVIOContext> m_bytes;
    libav::Handle<AVFormatContext> m_container;
    libav::Handle<AVCodecContext> m_decoder;
    libav::Handle<AVFrame> m_decoded;
    libav::Handle<AVFrame> m_bgr; // with lines as long as the scaler may write
    libav::Handle<AVPacket> m_packet;
    SwsContext *m_scaler = nullptr; // for the size and format of the last frame
    int m_stream = -1;
    bool m_hasEnded = false; // the decoder knows that no packet follows
    FramePool m_pool;
};

} // namespace portable
