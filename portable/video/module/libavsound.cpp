// SPDX-License-Identifier: MIT
#include "portable/video/module/libavsound.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <cmath>
#include <utility>

namespace portable {

namespace {

constexpr int bitRate = 96000;
/// From this error on, 40 ms, samples have been lost: silence takes their place, or they are cut
/// off.
constexpr qint64 stepLimit = soundRate / 25;
/// Resampling corrects a smaller error over this time, inaudibly. A drift of 1000 ppm leaves 10 ms.
constexpr int mendingTime = 10 * soundRate;
/// Capture times vary by the moments at which the operating system wakes the reader.
constexpr double smoothing = 0.1;

void freeResampler(SwrContext *resampler)
{
    swr_free(&resampler);
}

// Channel layouts became a type of their own in FFmpeg 5.1; the numbers went with 7.
#if LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(57, 28, 100)
template <class Target> void setMono(Target *target)
{
    av_channel_layout_default(&target->ch_layout, 1);
}

SwrContext *newResampler()
{
    AVChannelLayout mono;
    av_channel_layout_default(&mono, 1);
    SwrContext *resampler = nullptr;
    swr_alloc_set_opts2(&resampler, &mono, AV_SAMPLE_FMT_FLT, soundRate, &mono, AV_SAMPLE_FMT_S16,
                        soundRate, 0, nullptr);
    return resampler;
}
#else
template <class Target> void setMono(Target *target)
{
    target->channel_layout = AV_CH_LAYOUT_MONO;
    target->channels = 1;
}

SwrContext *newResampler()
{
    return swr_alloc_set_opts(nullptr, AV_CH_LAYOUT_MONO, AV_SAMPLE_FMT_FLT, soundRate,
                              AV_CH_LAYOUT_MONO, AV_SAMPLE_FMT_S16, soundRate, 0, nullptr);
}
#endif

} // namespace

LibavSound::LibavSound(Write write)
    : m_write(std::move(write))
    , m_encoder(nullptr, libav::freeCodec)
    , m_resampler(nullptr, freeResampler)
    , m_frame(av_frame_alloc(), libav::freeFrame)
    , m_packet(av_packet_alloc(), libav::freePacket)
{
}

int LibavSound::open(const std::vector<AVCodecID> &codecs, bool globalHeader)
{
    int code = AVERROR_ENCODER_NOT_FOUND;
    for (const AVCodecID id : codecs) {
        const AVCodec *codec = avcodec_find_encoder(id);
        code = codec ? openEncoder(codec, globalHeader) : AVERROR_ENCODER_NOT_FOUND;
        if (code >= 0) {
            return openResampler();
        }
    }
    return code;
}

int LibavSound::openEncoder(const AVCodec *codec, bool globalHeader)
{
    m_encoder.reset(avcodec_alloc_context3(codec));
    if (!m_encoder) {
        return AVERROR(ENOMEM);
    }
    m_encoder->sample_fmt = AV_SAMPLE_FMT_FLTP; // the same as FLT, of one channel
    m_encoder->sample_rate = soundRate;
    m_encoder->time_base = {1, soundRate};
    m_encoder->bit_rate = bitRate;
    m_encoder->thread_count = 1;
    setMono(m_encoder.get());
    if (globalHeader) {
        m_encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    const int code = avcodec_open2(m_encoder.get(), codec, nullptr);
    // Decoders give so many samples before the first one. Left out at the start, they don't delay
    // the others; to say so in the file is not possible in each container.
    m_skip = m_encoder->initial_padding;
    return code;
}

int LibavSound::openResampler()
{
    m_resampler.reset(newResampler());
    if (!m_resampler) {
        return AVERROR(ENOMEM);
    }
    // It would only convert while both rates are equal.
    av_opt_set_int(m_resampler.get(), "flags", SWR_FLAG_RESAMPLE, 0);
    return swr_init(m_resampler.get());
}

/// The number of samples in the video, with those that the resampler still has.
qint64 LibavSound::end() const
{
    return m_encoded + qint64(m_pending.size()) + swr_get_delay(m_resampler.get(), soundRate);
}

int LibavSound::add(base::Clock::Duration at, const Samples &samples)
{
    const qint64 error = samplesIn(at) - end();
    if (error < -stepLimit || (!m_hasSound && error < 0)) {
        const auto excess = std::min<std::size_t>(std::size_t(-error), samples.size());
        return append({samples.begin() + std::ptrdiff_t(excess), samples.end()});
    }
    if (error > stepLimit || !m_hasSound) {
        m_error = 0;
        m_hasSound = true;
        const int code = appendSilence(error);
        return code >= 0 ? append(samples) : code;
    }
    adjust(error);
    return append(samples);
}

/// Has the resampler mend what is left of the error.
void LibavSound::adjust(qint64 error)
{
    m_error += smoothing * (double(error) - m_error);
    swr_set_compensation(m_resampler.get(), int(std::lround(m_error)), mendingTime);
}

int LibavSound::append(const Samples &samples)
{
    if (samples.empty()) {
        return 0;
    }
    const auto count = int(samples.size());
    const auto before = m_pending.size();
    const int room = swr_get_out_samples(m_resampler.get(), count);
    if (room < 0) {
        return room;
    }
    m_pending.resize(before + std::size_t(room));
    auto *out = reinterpret_cast<uint8_t *>(m_pending.data() + before);
    const auto *in = reinterpret_cast<const uint8_t *>(samples.data());
    const int got = swr_convert(m_resampler.get(), &out, room, &in, count);
    m_pending.resize(before + std::size_t(std::max(got, 0)));
    return got < 0 ? got : encodePending(std::size_t(m_encoder->frame_size));
}

int LibavSound::appendSilence(qint64 count)
{
    int code = 0;
    while (count > 0 && code >= 0) { // a long gap doesn't have to fit into memory
        const qint64 now = std::min<qint64>(count, soundRate);
        m_pending.resize(m_pending.size() + std::size_t(now));
        count -= now;
        code = encodePending(std::size_t(m_encoder->frame_size));
    }
    return code;
}

int LibavSound::growTo(base::Clock::Duration time)
{
    const qint64 missing = samplesIn(time) - end();
    if (missing <= 0) {
        return 0;
    }
    m_hasSound = false;
    return appendSilence(missing);
}

/// Encodes all whole frames of this size.
int LibavSound::encodePending(std::size_t frameSize)
{
    std::size_t used = std::min<std::size_t>(std::size_t(m_skip), m_pending.size());
    m_skip -= qint64(used);
    int code = 0;
    for (; code >= 0 && frameSize > 0 && m_pending.size() - used >= frameSize; used += frameSize) {
        av_frame_unref(m_frame.get());
        m_frame->format = m_encoder->sample_fmt;
        m_frame->sample_rate = soundRate;
        m_frame->nb_samples = int(frameSize);
        setMono(m_frame.get());
        code = av_frame_get_buffer(m_frame.get(), 0);
        if (code < 0) {
            break;
        }
        std::copy_n(m_pending.data() + used, frameSize,
                    reinterpret_cast<float *>(m_frame->data[0]));
        m_frame->pts = m_encoded + qint64(used);
        code = encode(m_frame.get());
    }
    m_pending.erase(m_pending.begin(), m_pending.begin() + std::ptrdiff_t(used));
    m_encoded += qint64(used);
    return code;
}

int LibavSound::encode(const AVFrame *frameOrNull)
{
    int code = avcodec_send_frame(m_encoder.get(), frameOrNull);
    while (code >= 0) {
        code = avcodec_receive_packet(m_encoder.get(), m_packet.get());
        if (code >= 0) {
            code = m_write(m_packet.get());
        }
    }
    return code == AVERROR(EAGAIN) || code == AVERROR_EOF ? 0 : code;
}

int LibavSound::finish()
{
    int code = encodePending(std::size_t(m_encoder->frame_size));
    if (code >= 0) {
        code = encodePending(m_pending.size()); // the last frame may be short
    }
    return code >= 0 ? encode(nullptr) : code;
}

} // namespace portable
