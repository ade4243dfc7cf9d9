// SPDX-License-Identifier: MIT
#pragma once

#include "identity/requestthread.h"

/// Reads ID cards for sIDCardReader; each request is a read and a reply to all pages.
class ReadIdCardThread : public RequestThread
{
    Q_OBJECT

public:
    /// The server's one; made, and started, at the first call.
    static ReadIdCardThread *instance();

    ReadIdCardThread();
    ~ReadIdCardThread() override;

    /// Asks for one read. Blocks while a batch of reads is under way.
    void readCard() { request(); }

protected:
    QString serve() override;
};
