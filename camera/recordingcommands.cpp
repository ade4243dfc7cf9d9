// SPDX-License-Identifier: MIT
//
// Recording of the preview. The device library holds the state.

#include "camera/stoprecthread.h"
#include "devicelib/doccamera.h"
#include "dispatch/arguments.h"
#include "dispatch/messagerun.h"

// The path may contain commas: the text is not split.
QString MessageRun::bStartRec_callback(QString name, QString args, MessageRun *)
{
    return reply(name, bStartRec(args.toUtf8().constData()));
}

QString MessageRun::bStartRecMp3_callback(QString name, QString args, MessageRun *)
{
    return reply(name, bStartRecMp3(args.toUtf8().constData()));
}

// An accepted stop is answered by StopRecThread, once the file is complete.
QString MessageRun::bStopRec_callback(QString name, QString, MessageRun *)
{
    if (!bStopRec()) {
        return reply(name, false);
    }
    StopRecThread::instance()->waitForEnd();
    return QStringLiteral(" ");
}

QString MessageRun::bPauseRec_callback(QString name, QString, MessageRun *)
{
    return reply(name, bPauseRec());
}

QString MessageRun::bResumeRec_callback(QString name, QString, MessageRun *)
{
    return reply(name, bResumeRec());
}

QString MessageRun::isRecording_callback(QString name, QString, MessageRun *)
{
    return reply(name, isRecording());
}

QString MessageRun::vSetRecSize_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    if (fields.count() >= 2) {
        vSetRecSize(fields.number<int>(0), fields.number<int>(1));
    }
    return reply(name);
}
