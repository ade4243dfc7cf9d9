// SPDX-License-Identifier: MIT
#include "identity/livingbodydetectthread.h"

#include "devicelib/biometrics.h"
#include "dispatch/messagerun.h"

LivingBodyDetectThread *LivingBodyDetectThread::instance()
{
    static LivingBodyDetectThread thread;
    return &thread;
}

LivingBodyDetectThread::LivingBodyDetectThread()
    : RequestThread(QStringLiteral("bLivingBodyDetect"))
{
    setObjectName(QStringLiteral("liveness"));
    start();
}

LivingBodyDetectThread::~LivingBodyDetectThread()
{
    end();
}

QString LivingBodyDetectThread::serve()
{
    return MessageRun::truth(bLivingBodyDetect());
}
