// SPDX-License-Identifier: MIT
#include "devicelib/doccamera.h"
#include "portable/base/atomicfile.h"
#include "portable/recording/recorder.h"

using portable::CameraSet;
using portable::pathOf;
using portable::Recorder;
using portable::VideoFormat;

namespace portable::api {

bool bStartRec(const char *path)
{
    return Recorder::instance().start(pathOf(path), VideoFormat::Standard);
}

bool bStartRecMp3(const char *path)
{
    return Recorder::instance().start(pathOf(path), VideoFormat::Legacy);
}

bool bStopRec()
{
    CameraSet::instance().announceEnd();
    return Recorder::instance().stop();
}

bool bPauseRec()
{
    return Recorder::instance().pause();
}

bool bResumeRec()
{
    return Recorder::instance().resume();
}

bool isRecording()
{
    return Recorder::instance().isRecording();
}

void vSetRecSize(qint64 width, qint64 height)
{
    Recorder::instance().setSize(width, height);
}

} // namespace portable::api
