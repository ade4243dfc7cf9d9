// SPDX-License-Identifier: MIT
#include "camera/stoprecthread.h"

#include "devicelib/doccamera.h"
#include "dispatch/messagerun.h"
#include "log/trace.h"

StopRecThread *StopRecThread::instance()
{
    static StopRecThread thread{Waits{}};
    return &thread;
}

StopRecThread::StopRecThread(const Waits &waits)
    : m_waits(waits)
{
    setObjectName(QStringLiteral("stop recording"));
}

StopRecThread::~StopRecThread()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_ending = true;
        m_wake.notify_one();
    }
    wait();
    // The thread is gone; the thread sanitizer, which doesn't know QThread::wait, learns it here.
    const std::lock_guard<std::mutex> lock(m_mutex);
}

void StopRecThread::waitForEnd()
{
    if (!isRunning()) {
        start();
    }
}

/// False when the program ends meanwhile.
bool StopRecThread::sleep(std::chrono::milliseconds time)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return !m_wake.wait_for(lock, time, [this] { return m_ending; });
}

void StopRecThread::run()
{
    for (int polls = 0; polls < pollLimit && isRecording(); ++polls) {
        if (!sleep(m_waits.poll)) {
            return;
        }
        TRACE << isRecording();
    }
    if (!sleep(m_waits.last)) {
        return;
    }
    const QString text =
        MessageRun::framed(QStringLiteral("bStopRec"), MessageRun::truth(!isRecording()));
    Q_EMIT sig_msg(text.toLocal8Bit());
}
