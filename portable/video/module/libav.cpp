// SPDX-License-Identifier: MIT
#include "portable/video/module/libav.h"

#include <array>

namespace portable {
namespace libav {

QString errorText(int code)
{
    std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
    av_strerror(code, text.data(), text.size());
    return QString::fromLocal8Bit(text.data());
}

void freeCodec(AVCodecContext *codec)
{
    avcodec_free_context(&codec);
}

void freeFrame(AVFrame *frame)
{
    av_frame_free(&frame);
}

void freePacket(AVPacket *packet)
{
    av_packet_free(&packet);
}

} // namespace libav
} // namespace portable
