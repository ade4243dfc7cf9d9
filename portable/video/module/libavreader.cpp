// SPDX-License-Identifier: MIT
#include "portable/video/module/libavreader.h"

#include "portable/base/failure.h"
#include "portable/base/inputlimits.h"

extern "C" {
#include <libswscale/swscale.h>
}
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <limits>
#include <vector>

namespace portable {

namespace {

/// FFmpeg's names of the containers. Playlists, which name other files, are none of ours.
constexpr char containers[] = "mov,matroska,avi,mpegts,mpeg,asf,flv,ogg,mjpeg,m4v,h264,hevc,gif";
constexpr int bufferSize = 64 * 1024;
constexpr int lineAlignment = 64; // the widest instructions of the scaler, in bytes

void freeBytes(AVIOContext *bytes)
{
    if (bytes) {
        av_freep(&bytes->buffer);
        avio_context_free(&bytes);
    }
}

void closeContainer(AVFormatContext *container)
{
    avformat_close_input(&container);
}

/// A file may name others, which stay closed.
int openNothing(AVFormatContext *, AVIOContext **, const char *, int, AVDictionary **)
{
    return AVERROR(EPERM);
}

} // namespace

std::unique_ptr<VideoReader> LibavReader::open(const QString &path, QString *error)
{
    av_log_set_level(AV_LOG_QUIET); // it would write to stderr
    std::unique_ptr<LibavReader> reader(new LibavReader); // the constructor is private
    if (!reader->m_file.open(path, std::numeric_limits<qint64>::max(), error)) {
        return nullptr;
    }
    if (!reader->openContainer(error) || !reader->openDecoder(error)) {
        prefixError(QStringLiteral("not a video that can be read here"), error);
        return nullptr;
    }
    return reader;
}

LibavReader::LibavReader()
    : m_bytes(nullptr, freeBytes)
    , m_container(nullptr, closeContainer)
    , m_decoder(nullptr, libav::freeCodec)
    , m_decoded(av_frame_alloc(), libav::freeFrame)
    , m_bgr(av_frame_alloc(), libav::freeFrame)
    , m_packet(av_packet_alloc(), libav::freePacket)
{
    startTime();
}

LibavReader::~LibavReader()
{
    sws_freeContext(m_scaler);
}

bool LibavReader::openContainer(QString *error)
{
    auto *buffer = static_cast<uchar *>(av_malloc(bufferSize));
    m_bytes.reset(avio_alloc_context(buffer, bufferSize, 0, this, readBytes, nullptr, seek));
    AVFormatContext *container = avformat_alloc_context();
    if (!m_bytes || !container) {
        avformat_free_context(container);
        return setError(libav::errorText(AVERROR(ENOMEM)), error);
    }
    container->pb = m_bytes.get();
    container->io_open = openNothing;
    container->format_whitelist = av_strdup(containers);
    int code = avformat_open_input(&container, "", nullptr, nullptr); // frees it when it fails
    if (code >= 0) {
        m_container.reset(container);
        code = readStreams();
    }
    if (code >= 0) {
        m_stream = av_find_best_stream(container, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
        code = m_stream;
    }
    return code >= 0 || setError(libav::errorText(code), error);
}

/// Reads until the streams are known, which may decode some frames. \return FFmpeg's result
int LibavReader::readStreams()
{
    std::vector<AVDictionary *> options(m_container->nb_streams);
    for (AVDictionary *&ofStream : options) {
        av_dict_set_int(&ofStream, "max_pixels", limits::videoPixels, 0);
    }
    const int code = avformat_find_stream_info(m_container.get(), options.data());
    for (AVDictionary *&ofStream : options) {
        av_dict_free(&ofStream);
    }
    return code;
}

bool LibavReader::openDecoder(QString *error)
{
    for (unsigned i = 0; i < m_container->nb_streams; ++i) {
        m_container->streams[i]->discard = int(i) == m_stream ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    }
    const AVCodecParameters *parameters = m_container->streams[m_stream]->codecpar;
    const AVCodec *codec = avcodec_find_decoder(parameters->codec_id);
    m_decoder.reset(codec ? avcodec_alloc_context3(codec) : nullptr);
    if (!m_decoder) {
        return setError(libav::errorText(AVERROR_DECODER_NOT_FOUND), error);
    }
    m_decoder->max_pixels = limits::videoPixels;
    int code = avcodec_parameters_to_context(m_decoder.get(), parameters);
    if (code >= 0) {
        code = avcodec_open2(m_decoder.get(), codec, nullptr);
    }
    return code >= 0 || setError(libav::errorText(code), error);
}

cv::Size LibavReader::size() const
{
    return {m_decoder->width, m_decoder->height};
}

double LibavReader::framesPerSecond() const
{
    AVStream *stream = m_container->streams[m_stream];
    const AVRational rate = av_guess_frame_rate(m_container.get(), stream, nullptr);
    return rate.num > 0 && rate.den > 0 ? av_q2d(rate) : 0;
}

bool LibavReader::read(cv::Mat &frame)
{
    startTime();
    return decode() && convert(frame);
}

/// The next frame, into m_decoded. Packets and frames that are damaged are skipped.
bool LibavReader::decode()
{
    while (!isLate()) {
        const int code = avcodec_receive_frame(m_decoder.get(), m_decoded.get());
        if (code >= 0) {
            return true;
        }
        if (code == AVERROR_EOF || (code != AVERROR(EAGAIN) && m_hasEnded)) {
            return false;
        }
        if (code == AVERROR(EAGAIN) && !sendPacket()) {
            return false;
        }
    }
    return false;
}

/// Gives the decoder the next packet of the video, or the news that there is none.
bool LibavReader::sendPacket()
{
    int code = av_read_frame(m_container.get(), m_packet.get());
    if (code < 0) {
        const bool isFirst = !m_hasEnded;
        m_hasEnded = true;
        return isFirst && avcodec_send_packet(m_decoder.get(), nullptr) >= 0;
    }
    if (m_packet->stream_index == m_stream) {
        avcodec_send_packet(m_decoder.get(), m_packet.get()); // a damaged one is skipped
    }
    av_packet_unref(m_packet.get());
    return true;
}

/// m_decoded, in BGR.
bool LibavReader::convert(cv::Mat &frame)
{
    const cv::Size size(m_decoded->width, m_decoded->height);
    const auto format = AVPixelFormat(m_decoded->format);
    const bool isUsable = m_bgr->data[0] && size == cv::Size(m_bgr->width, m_bgr->height);
    SwsContext *before = m_scaler;
    m_scaler =
        sws_getCachedContext(m_scaler, size.width, size.height, format, size.width, size.height,
                             AV_PIX_FMT_BGR24, SWS_BICUBIC, nullptr, nullptr, nullptr);
    if (!m_scaler) {
        return false;
    }
    if (m_scaler != before || !isUsable) {
        av_frame_unref(m_bgr.get());
        m_bgr->format = AV_PIX_FMT_BGR24;
        m_bgr->width = size.width;
        m_bgr->height = size.height;
        if (av_frame_get_buffer(m_bgr.get(), lineAlignment) < 0) {
            return false;
        }
    }
    sws_scale(m_scaler, m_decoded->data, m_decoded->linesize, 0, size.height, m_bgr->data,
              m_bgr->linesize);
    frame = m_pool.take(size);
    cv::Mat(size, CV_8UC3, m_bgr->data[0], std::size_t(m_bgr->linesize[0])).copyTo(frame);
    return true;
}

void LibavReader::startTime()
{
    m_deadline = std::chrono::steady_clock::now() + limits::decoding;
}

bool LibavReader::isLate() const
{
    return std::chrono::steady_clock::now() >= m_deadline;
}

int LibavReader::readBytes(void *self, uint8_t *bytes, int size)
{
    const auto *reader = static_cast<LibavReader *>(self);
    if (reader->isLate()) {
        return AVERROR_EXIT;
    }
    const ssize_t count = ::read(reader->m_file.handle(), bytes, std::size_t(size));
    return count > 0 ? int(count) : count == 0 ? AVERROR_EOF : AVERROR(errno);
}

int64_t LibavReader::seek(void *self, int64_t offset, int whence)
{
    const auto *reader = static_cast<LibavReader *>(self);
    if ((whence & AVSEEK_SIZE) != 0) {
        return reader->m_file.size();
    }
    const off_t at = ::lseek(reader->m_file.handle(), off_t(offset), whence & ~AVSEEK_FORCE);
    return at >= 0 ? at : AVERROR(errno);
}

} // namespace portable
