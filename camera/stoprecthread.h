// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QThread>

#include <chrono>
#include <condition_variable>
#include <mutex>

/**
 * Waits, after a recording was asked to stop, until its file is whole, and then tells all pages.
 * Runs from a stop to its answer; a stop that comes meanwhile is answered along with it.
 */
class StopRecThread : public QThread
{
    Q_OBJECT

public:
    /// How long the thread waits; tests shorten these.
    struct Waits
    {
        std::chrono::milliseconds poll{1000}; ///< between two looks at the recording
        std::chrono::milliseconds last{500}; ///< before the last look
    };

    /// How often it looks before it gives up: about three minutes.
    static constexpr int pollLimit = 180;

    /// The server's one; made at the first call, not started.
    static StopRecThread *instance();

    explicit StopRecThread(const Waits &waits);
    ~StopRecThread() override;

    /// Starts the thread unless it runs. Main thread.
    void waitForEnd();

Q_SIGNALS:
    /// The framed reply of bStopRec: whether the recording has ended. Emitted by this thread.
    void sig_msg(QByteArray text);

protected:
    void run() override;

private:
    bool sleep(std::chrono::milliseconds time);

    const Waits m_waits;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_ending = false; // guarded by m_mutex; the program ends
};
