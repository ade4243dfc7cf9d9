// SPDX-License-Identifier: MIT
#pragma once

#include "identity/requestthread.h"

/// Reads ID cards for sIDCardReader; each request is one read and one reply to all pages.
class ReadIdCardThread : public RequestThread
{
    Q_OBJECT

public:
    /// The server's instance, created and started by the first call.
    static ReadIdCardThread *instance();

    ReadIdCardThread();
    ~ReadIdCardThread() override;

    /// Requests one read. Blocks while a batch of reads is running.
    void readCard() { request(); }

protected:
    QString serve() override;
};
