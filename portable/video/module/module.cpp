// SPDX-License-Identifier: MIT
// What libportablevideo.so exports; portable/video/videomodule.cpp loads it.
#include "portable/video/module/alsamicrophone.h"
#include "portable/video/module/libavreader.h"
#include "portable/video/module/libavwriter.h"
#include "portable/video/videomodule.h"

extern "C" {
extern __attribute__((visibility("default"))) const portable::VideoModule portableVideo;
}

const portable::VideoModule portableVideo{
    portable::LibavWriter::create, portable::LibavReader::open, portable::AlsaMicrophone::open};
