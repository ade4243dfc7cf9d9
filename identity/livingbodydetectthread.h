// SPDX-License-Identifier: MIT
#pragma once

#include "identity/requestthread.h"

/// Runs the liveness checks of bLivingBodyDetect; each request gets its own reply.
class LivingBodyDetectThread : public RequestThread
{
    Q_OBJECT

public:
    /// The server's instance, created and started by the first call.
    static LivingBodyDetectThread *instance();

    LivingBodyDetectThread();
    ~LivingBodyDetectThread() override;

    /// Requests one check. Blocks while a batch of checks is running.
    void Detect() { request(); }

protected:
    QString serve() override;
};
