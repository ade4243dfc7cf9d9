// SPDX-License-Identifier: MIT
#include "portable/base/backgroundjob.h"

#include "base/clock.h"
#include "portable/base/failure.h"

#include <QCoreApplication>

#include <system_error>
#include <vector>

namespace portable {

namespace {

std::mutex closingMutex;
std::vector<BackgroundJob *> closedWithApplication; // guarded by closingMutex

void closeAll()
{
    std::vector<BackgroundJob *> jobs;
    {
        const std::lock_guard<std::mutex> lock(closingMutex);
        jobs.swap(closedWithApplication);
    }
    for (BackgroundJob *job : jobs) {
        job->close();
    }
}

} // namespace

bool BackgroundJob::Stop::isRequested() const
{
    const std::lock_guard<std::mutex> lock(m_job.m_mutex);
    return m_job.m_stop;
}

bool BackgroundJob::Stop::sleepUntil(Clock::time_point time) const
{
    std::unique_lock<std::mutex> lock(m_job.m_mutex);
    return base::Clock::shared().waitUntil(m_job.m_changed, lock, time,
                                           [this] { return m_job.m_stop; });
}

bool BackgroundJob::begin(Work work)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!take()) {
        return false;
    }
    if (m_thread.joinable()) {
        m_thread.join(); // it has released the job already, so this takes no time
    }
    try {
        m_thread = std::thread([this, work = std::move(work)]() mutable {
            const Answer answer = work(Stop(*this));
            work = {}; // releases what it holds before other work may start
            release();
            if (answer) {
                answer();
            }
        });
    } catch (const std::system_error &failure) {
        logFailure("no thread can be started", QString::fromLocal8Bit(failure.what()));
        m_busy = false;
        return false;
    }
    return true;
}

bool BackgroundJob::run(const std::function<void(const Stop &)> &work)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (!take()) {
            return false;
        }
    }
    work(Stop(*this));
    release();
    return true;
}

void BackgroundJob::stop()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_stop = m_busy;
    m_changed.notify_all();
    m_changed.wait(lock, [this] { return !m_busy; });
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void BackgroundJob::close()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_closed = true;
    }
    stop();
}

void BackgroundJob::closeWithApplication()
{
    const std::lock_guard<std::mutex> lock(closingMutex);
    closedWithApplication.push_back(this);
    static const bool once = [] {
        QObject::connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, closeAll);
        qAddPostRoutine(closeAll);
        return true;
    }();
    Q_UNUSED(once)
}

/// To be called with m_mutex held. \return false while the job is busy or closed
bool BackgroundJob::take()
{
    if (m_busy || m_closed) {
        return false;
    }
    m_busy = true;
    m_stop = false;
    return true;
}

void BackgroundJob::release()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_busy = false;
    m_stop = false;
    m_changed.notify_all(); // under the lock: whoever waits in close() may delete the job
}

} // namespace portable
