// SPDX-License-Identifier: MIT
#pragma once

#include "identity/requestthread.h"

/// Checks for bLivingBodyDetect whether a living person is there; each request gets its reply.
class LivingBodyDetectThread : public RequestThread
{
    Q_OBJECT

public:
    /// The server's one; made, and started, at the first call.
    static LivingBodyDetectThread *instance();

    LivingBodyDetectThread();
    ~LivingBodyDetectThread() override;

    /// Asks for one check. Blocks while a batch of checks is under way.
    void Detect() { request(); }

protected:
    QString serve() override;
};
