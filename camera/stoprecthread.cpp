// SPDX-License-Identifier: MIT
#include "camera/stoprecthread.h"

#include "devicelib/doccamera.h"
#include "dispatch/deviceguard.h"
#include "dispatch/messagerun.h"
#include "log/trace.h"

using namespace std::chrono_literals;

namespace {

constexpr auto pollWait = 1000ms;
constexpr auto lastWait = 500ms; // before the state that is reported
constexpr int maxPolls = 180; // about three minutes

} // namespace

StopRecThread *StopRecThread::instance()
{
    static StopRecThread thread;
    return &thread;
}

StopRecThread::StopRecThread(base::Clock &clock)
    : m_clock(clock)
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
    // Shows the thread sanitizer, which does not know QThread::wait, that the thread has ended.
    const std::lock_guard<std::mutex> lock(m_mutex);
}

void StopRecThread::waitForEnd()
{
    if (!isRunning()) {
        start();
    }
}

/// \return false when the thread is to end at once
bool StopRecThread::sleep(base::Clock::Duration time)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return !m_clock.waitFor(m_wake, lock, time, [this] { return m_ending; });
}

/// \return false when the thread is to end at once
bool StopRecThread::waitForFile(bool *isComplete)
{
    for (int polls = 0; polls < maxPolls && isRecording(); ++polls) {
        if (!sleep(pollWait)) {
            return false;
        }
        TRACE << isRecording();
    }
    if (!sleep(lastWait)) {
        return false;
    }
    *isComplete = !isRecording();
    return true;
}

void StopRecThread::run()
{
    const QString command = QStringLiteral("bStopRec");
    bool isComplete = false;
    if (guarded(command, true, [this, &isComplete] { return waitForFile(&isComplete); })) {
        Q_EMIT sig_msg(MessageRun::framed(command, MessageRun::truth(isComplete)).toLocal8Bit());
    }
    const std::lock_guard<std::mutex> lock(m_mutex); // for the sanitizer, see the destructor
}
