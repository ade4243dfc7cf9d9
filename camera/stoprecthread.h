// SPDX-License-Identifier: MIT
#pragma once

#include "base/clock.h"

#include <QByteArray>
#include <QThread>

#include <condition_variable>
#include <mutex>

/**
 * Waits until a stopped recording has been written completely, then reports it to all pages. The
 * thread runs from a stop to its reply; a further stop in between is covered by the same reply.
 */
class StopRecThread : public QThread
{
    Q_OBJECT

public:
    /// The server's instance, created by the first call. It is not started yet.
    static StopRecThread *instance();

    /// \param clock  must outlive this object
    explicit StopRecThread(base::Clock &clock = base::Clock::shared());
    ~StopRecThread() override;

    /// Starts the thread unless it is running. Main thread.
    void waitForEnd();

Q_SIGNALS:
    /// The framed reply of bStopRec: whether the recording has ended. Emitted by this thread.
    void sig_msg(QByteArray text);

protected:
    void run() override;

private:
    bool waitForFile(bool *isComplete);
    bool sleep(base::Clock::Duration time);

    base::Clock &m_clock;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_ending = false; // guarded by m_mutex
};
