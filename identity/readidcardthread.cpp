// SPDX-License-Identifier: MIT
#include "identity/readidcardthread.h"

#include "devicelib/cardreader.h"
#include "dispatch/devicetext.h"

ReadIdCardThread *ReadIdCardThread::instance()
{
    static ReadIdCardThread thread;
    return &thread;
}

ReadIdCardThread::ReadIdCardThread()
    : RequestThread(QStringLiteral("sIDCardReader"))
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
    return latin1Of(DeviceText(sIDCardReader()));
}
