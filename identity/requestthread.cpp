// SPDX-License-Identifier: MIT
#include "identity/requestthread.h"

#include "dispatch/deviceguard.h"
#include "dispatch/failureresult.h"
#include "dispatch/messagerun.h"

void RequestThread::request()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_requests;
    }
    m_wake.notify_all();
}

void RequestThread::end()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_running = false;
    }
    m_wake.notify_all();
    wait();
    // Shows the thread sanitizer, which does not know QThread::wait, that the thread has ended.
    const std::lock_guard<std::mutex> lock(m_mutex);
}

void RequestThread::run()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    while (m_running) {
        m_wake.wait(lock, [this] { return m_requests > 0 || !m_running; });
        for (; m_requests > 0; --m_requests) {
            const QString result = guarded(m_command, failureResult(m_command).value_or(QString()),
                                           [this] { return serve(); });
            Q_EMIT sig_msg(MessageRun::framed(m_command, result).toLocal8Bit());
        }
    }
}
