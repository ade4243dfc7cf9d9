// SPDX-License-Identifier: MIT
#include "identity/readidcardthread.h"

#include "devicelib/cardreader.h"
#include "dispatch/devicetext.h"
#include "dispatch/messagerun.h"

ReadIdCardThread *ReadIdCardThread::instance()
{
    static ReadIdCardThread thread;
    return &thread;
}

ReadIdCardThread::ReadIdCardThread()
{
    setObjectName(QStringLiteral("ID card"));
    start();
}

ReadIdCardThread::~ReadIdCardThread()
{
    end();
}

QString ReadIdCardThread::serve()
{
    return MessageRun::framed(QStringLiteral("sIDCardReader"),
                              latin1Of(DeviceText(sIDCardReader())));
}
