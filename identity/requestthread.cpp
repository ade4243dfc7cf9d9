// SPDX-License-Identifier: MIT
#include "identity/requestthread.h"

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
    // Tells the thread sanitizer, which does not know QThread::wait, that the thread has ended.
    const std::lock_guard<std::mutex> lock(m_mutex);
}

void RequestThread::run()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    while (m_running) {
        m_wake.wait(lock, [this] { return m_requests > 0 || !m_running; });
        for (; m_requests > 0; --m_requests) {
            Q_EMIT sig_msg(serve().toLocal8Bit());
        }
    }
}
