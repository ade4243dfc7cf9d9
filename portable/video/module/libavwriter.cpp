// SPDX-License-Identifier: MIT
#include "portable/video/module/libavwriter.h"

#include "portable/base/failure.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <opencv2/imgproc.hpp>
extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
}

#include <array>
#include <utility>

namespace portable {

namespace {

constexpr int mpeg4Quantizer = 4; // 2 is the best quality, 31 the worst

/// When a picture is shown.
base::Clock::Duration lengthOfFrames(qint64 count)
{
    return std::chrono::milliseconds(count * 1000 / videoFrameRate);
}

void freeMuxer(AVFormatContext *muxer)
{
    avio_closep(&muxer->pb);
    avformat_free_context(muxer);
}

} // namespace

std::unique_ptr<VideoFile> LibavWriter::create(const QString &path, VideoFormat format,
                                               const cv::Size &size, bool withSound, QString *error)
{
    av_log_set_level(AV_LOG_QUIET); // it would write to stderr
    std::unique_ptr<LibavWriter> file(new LibavWriter(path, size)); // the constructor is private
    const QLatin1String muxer(videoMuxer(path));
    AVFormatContext *context = nullptr;
    const int code = avformat_alloc_output_context2(&context, nullptr, muxer.data(), nullptr);
    if (code < 0) {
        file->fail(code, error);
        return nullptr;
    }
    file->m_muxer.reset(context);
    const bool globalHeader = (context->oformat->flags & AVFMT_GLOBALHEADER) != 0;
    const bool isLegacy = format == VideoFormat::Legacy || muxer == QLatin1String("avi");
    const bool ready = (!isLegacy && file->openEncoder("libx264", globalHeader, error))
        || file->openEncoder("mpeg4", globalHeader, error);
    if (ready && withSound) {
        file->openSound(isLegacy, globalHeader);
    }
    if (!ready || !file->openFile(error)) {
        return nullptr;
    }
    return file;
}

LibavWriter::LibavWriter(QString path, const cv::Size &size)
    : m_path(std::move(path))
    , m_size(size)
    , m_muxer(nullptr, freeMuxer)
    , m_encoder(nullptr, libav::freeCodec)
    , m_frame(av_frame_alloc(), libav::freeFrame)
    , m_packet(av_packet_alloc(), libav::freePacket)
    , m_canvas(size, CV_8UC3, cv::Scalar::all(0))
    , m_place({}, size)
{
}

LibavWriter::~LibavWriter()
{
    QString unused;
    close(&unused);
}

bool LibavWriter::openEncoder(const char *encoder, bool globalHeader, QString *error)
{
    const AVCodec *codec = avcodec_find_encoder_by_name(encoder);
    m_encoder.reset(codec ? avcodec_alloc_context3(codec) : nullptr);
    if (!m_encoder) {
        return fail(AVERROR_ENCODER_NOT_FOUND, error);
    }
    m_encoder->width = m_size.width;
    m_encoder->height = m_size.height;
    m_encoder->pix_fmt = AV_PIX_FMT_YUV420P;
    m_encoder->color_range = AVCOL_RANGE_MPEG; // as OpenCV converts: BT.601
    m_encoder->colorspace = AVCOL_SPC_SMPTE170M;
    m_encoder->time_base = {1, videoFrameRate};
    m_encoder->framerate = {videoFrameRate, 1};
    m_encoder->gop_size = videoFrameRate; // a killed process loses this much
    m_encoder->max_b_frames = 0;
    m_encoder->thread_count = 1; // leaves the other cores to the preview
    if (codec->id == AV_CODEC_ID_H264) {
        // The fastest preset, for slow machines; files are larger at the same quality.
        av_opt_set(m_encoder->priv_data, "preset", "ultrafast", 0);
        av_opt_set(m_encoder->priv_data, "crf", "23", 0);
    } else {
        m_encoder->flags |= AV_CODEC_FLAG_QSCALE;
        m_encoder->global_quality = FF_QP2LAMBDA * mpeg4Quantizer;
    }
    if (globalHeader) {
        m_encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    const int code = avcodec_open2(m_encoder.get(), codec, nullptr);
    return code >= 0 || fail(code, error);
}

void LibavWriter::openSound(bool isMp3First, bool globalHeader)
{
    m_sound = std::make_unique<LibavSound>(
        [this](AVPacket *packet) { return write(packet, m_sound->encoder(), m_soundStream); });
    const auto codecs = isMp3First ? std::vector{AV_CODEC_ID_MP3, AV_CODEC_ID_AAC}
                                   : std::vector{AV_CODEC_ID_AAC, AV_CODEC_ID_MP3};
    const int code = m_sound->open(codecs, globalHeader);
    if (code < 0) {
        logWarning() << "no encoder for sound:" << libav::errorText(code);
        m_sound.reset();
    }
}

/// Opens the file and writes its header.
bool LibavWriter::openFile(QString *error)
{
    m_frame->format = m_encoder->pix_fmt;
    m_frame->width = m_size.width;
    m_frame->height = m_size.height;
    int code = av_frame_get_buffer(m_frame.get(), 0);
    m_stream = newStream(m_encoder.get());
    m_soundStream = m_sound ? newStream(m_sound->encoder()) : nullptr;
    if (code < 0 || !m_stream || (m_sound && !m_soundStream)) {
        return fail(AVERROR(ENOMEM), error);
    }
    m_stream->avg_frame_rate = m_encoder->framerate;
    if (m_encoder->codec_id == AV_CODEC_ID_MPEG4
        && QLatin1String(m_muxer->oformat->name) == QLatin1String("avi")) {
        m_stream->codecpar->codec_tag = MKTAG('X', 'V', 'I', 'D'); // the tag most players know
    }
    // MP4 in fragments of a GOP each, which play without the end of the file. Others ignore it.
    av_opt_set(m_muxer.get(), "movflags", "frag_keyframe+empty_moov+default_base_moof",
               AV_OPT_SEARCH_CHILDREN);
    m_muxer->flags |= AVFMT_FLAG_FLUSH_PACKETS;
    m_muxer->flush_packets = 1;

    QDir().mkpath(QFileInfo(m_path).absolutePath());
    // With "file:", a path like "http://..." isn't taken for a URL.
    const QByteArray url = "file:" + QFile::encodeName(m_path);
    code = avio_open(&m_muxer->pb, url.constData(), AVIO_FLAG_WRITE);
    if (code >= 0) {
        code = avformat_write_header(m_muxer.get(), nullptr);
    }
    if (code >= 0) {
        code = flushed();
        m_headerSize = m_goodSize;
    }
    return code >= 0 || fail(code, error);
}

/// \return null when memory runs out
AVStream *LibavWriter::newStream(const AVCodecContext *encoder)
{
    AVStream *stream = avformat_new_stream(m_muxer.get(), nullptr);
    if (!stream || avcodec_parameters_from_context(stream->codecpar, encoder) < 0) {
        return nullptr;
    }
    stream->time_base = encoder->time_base;
    return stream;
}

bool LibavWriter::add(qint64 index, const cv::Mat &picture, QString *error)
{
    if (!picture.empty()) {
        const int code = av_frame_make_writable(m_frame.get()); // the encoder may still have it
        if (code < 0) {
            return fail(code, error);
        }
        draw(picture);
    }
    m_frame->pts = index;
    m_count = index + 1;
    const int code = m_sound ? m_sound->growTo(lengthOfFrames(index) - soundPatience) : 0;
    return code >= 0 ? encode(m_frame.get(), error) : fail(code, error);
}

bool LibavWriter::addSound(base::Clock::Duration at, const Samples &samples, QString *error)
{
    const int code = m_sound ? m_sound->add(at, samples) : 0;
    return code >= 0 || fail(code, error);
}

/// Puts a picture, fitted, into m_frame.
void LibavWriter::draw(const cv::Mat &picture)
{
    const cv::Size spare = picture.size() - m_size;
    if (spare.width >= 0 && spare.width < 2 && spare.height >= 0 && spare.height < 2) {
        // Odd size: cropping a line is better than scaling.
        cv::cvtColor(picture(cv::Rect({}, m_size)), m_yuv, cv::COLOR_BGR2YUV_I420);
    } else {
        const cv::Rect place = fitInto(m_size, picture.size());
        if (place != m_place) {
            m_canvas = cv::Scalar::all(0);
            m_place = place;
        }
        const bool isMuchSmaller = place.width * 2 < picture.cols; // linear would skip lines
        cv::Mat target = m_canvas(place);
        cv::resize(picture, target, place.size(), 0, 0,
                   isMuchSmaller ? cv::INTER_AREA : cv::INTER_LINEAR);
        cv::cvtColor(m_canvas, m_yuv, cv::COLOR_BGR2YUV_I420);
    }
    const int pixels = m_size.area();
    const std::array<const uint8_t *, 4> planes{m_yuv.data, m_yuv.data + pixels,
                                                m_yuv.data + pixels + pixels / 4, nullptr};
    const std::array<int, 4> lines{m_size.width, m_size.width / 2, m_size.width / 2, 0};
    av_image_copy(m_frame->data, m_frame->linesize, const_cast<const uint8_t **>(planes.data()),
                  lines.data(), m_encoder->pix_fmt, m_size.width, m_size.height);
}

/// Sends the encoder a frame, or null at the end, and writes the packets it returns.
bool LibavWriter::encode(const AVFrame *frameOrNull, QString *error)
{
    int code = avcodec_send_frame(m_encoder.get(), frameOrNull);
    while (code >= 0) {
        code = avcodec_receive_packet(m_encoder.get(), m_packet.get());
        if (code >= 0) {
            m_packet->duration = 1;
            code = write(m_packet.get(), m_encoder.get(), m_stream);
        }
    }
    return code == AVERROR(EAGAIN) || code == AVERROR_EOF || fail(code, error);
}

/// Writes a packet of an encoder, which is empty afterwards. \return FFmpeg's result
int LibavWriter::write(AVPacket *packet, const AVCodecContext *encoder, const AVStream *stream)
{
    packet->stream_index = stream->index;
    av_packet_rescale_ts(packet, encoder->time_base, stream->time_base);
    const int code = av_interleaved_write_frame(m_muxer.get(), packet);
    return code >= 0 ? flushed() : code;
}

bool LibavWriter::finish(QString *error)
{
    if (!encode(nullptr, error)) {
        return false;
    }
    int code = m_sound ? m_sound->growTo(lengthOfFrames(m_count)) : 0;
    if (code >= 0 && m_sound) {
        code = m_sound->finish();
    }
    if (code >= 0) {
        code = av_write_trailer(m_muxer.get());
    }
    if (code >= 0) {
        code = flushed();
    }
    return (code >= 0 || fail(code, error)) && close(error);
}

bool LibavWriter::close(QString *error)
{
    if (!m_muxer || !m_muxer->pb) {
        return true;
    }
    const int code = avio_closep(&m_muxer->pb);
    if (m_goodSize <= m_headerSize) {
        QFile::remove(m_path);
    } else if (QFileInfo(m_path).size() > m_goodSize) {
        QFile::resize(m_path, m_goodSize);
    }
    return code >= 0 || fail(code, error);
}

/// Flushes FFmpeg's buffer to the file. \return its error code; updates m_goodSize on success
int LibavWriter::flushed()
{
    avio_flush(m_muxer->pb);
    if (m_muxer->pb->error >= 0) {
        m_goodSize = avio_size(m_muxer->pb);
    }
    return m_muxer->pb->error;
}

QString LibavWriter::description() const
{
    return QStringLiteral("%1, %2 x %3").arg(m_path).arg(m_size.width).arg(m_size.height)
        + QLatin1String(m_encoder->codec_id == AV_CODEC_ID_H264 ? ", H.264" : ", MPEG-4")
        + QLatin1String(!m_sound                                              ? ""
                            : m_sound->encoder()->codec_id == AV_CODEC_ID_AAC ? ", AAC"
                                                                              : ", MP3");
}

/// Sets the error to the path and FFmpeg's reason. \return false
bool LibavWriter::fail(int code, QString *error) const
{
    return setError(m_path + QStringLiteral(": ") + libav::errorText(code), error);
}

} // namespace portable
