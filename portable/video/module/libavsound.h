// SPDX-License-Identifier: MIT
#pragma once

#include "portable/video/module/libav.h"
#include "portable/video/sound.h"

#include <functional>
#include <vector>

struct SwrContext;

namespace portable {

/**
 * Encodes the sound of a video. Each sample gets to the time when it was captured: the clock of a
 * microphone runs faster or slower than that of the computer, which would part picture and sound by
 * some hundredths of a second each minute. What is missing becomes silence.
 *
 * Functions return FFmpeg's result. Not thread-safe.
 */
class LibavSound
{
public:
    /// Takes a packet, in the time base of encoder(). \return FFmpeg's result
    using Write = std::function<int(AVPacket *)>;

    explicit LibavSound(Write write);

    /// \param codecs  of which the first that is there is taken
    int open(const std::vector<AVCodecID> &codecs, bool globalHeader);

    const AVCodecContext *encoder() const { return m_encoder.get(); }

    /// \param at  time of the first sample in the video
    int add(base::Clock::Duration at, const Samples &samples);

    /// Fills what is missing before this time with silence.
    int growTo(base::Clock::Duration time);

    int finish(); ///< Writes what is pending.

private:
    int openEncoder(const AVCodec *codec, bool globalHeader);
    int openResampler();
    qint64 end() const;
    void adjust(qint64 error);
    int append(const Samples &samples);
    int appendSilence(qint64 count);
    int encodePending(std::size_t frameSize);
    int encode(const AVFrame *frameOrNull);

    const Write m_write;
    libav::Handle<AVCodecContext> m_encoder;
    libav::Handle<SwrContext> m_resampler;
    libav::Handle<AVFrame> m_frame;
    libav::Handle<AVPacket> m_packet;
    std::vector<float> m_pending; // not encoded yet
    qint64 m_encoded = 0; // samples before m_pending, from the begin of the video
    qint64 m_skip = 0; // samples that make way for the encoder's delay
    double m_error = 0; // how many samples the sound is behind its time, smoothed
    bool m_hasSound = false; // since the last gap
};

} // namespace portable
