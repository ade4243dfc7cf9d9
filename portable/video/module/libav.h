// SPDX-License-Identifier: MIT
/// \file What writing and reading with FFmpeg's libraries have in common.
#pragma once

#include <QString>
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
#include <libavutil/mem.h>
}

#include <memory>

namespace portable {
namespace libav {

QString errorText(int code); ///< Of a negative result.

void freeCodec(AVCodecContext *codec);
void freeFrame(AVFrame *frame);
void freePacket(AVPacket *packet);

/// What FFmpeg has allocated, with the function that frees it.
template <class T> using Handle = std::unique_ptr<T, void (*)(T *)>;

} // namespace libav
} // namespace portable
