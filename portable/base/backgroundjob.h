// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace portable {

/**
 * A device that does one thing at a time, each on a thread of its own. Callable from any thread,
 * except from the work itself.
 */
class BackgroundJob
{
public:
    using Clock = std::chrono::steady_clock;

    /// By which a work learns that it is to end, soon and without its result.
    class Stop
    {
    public:
        explicit Stop(BackgroundJob &job)
            : m_job(job)
        {
        }
        bool isRequested() const;

        /// Waits. \return whether it is to end
        bool sleepUntil(Clock::time_point time) const;

    private:
        BackgroundJob &m_job;
    };

    using Answer = std::function<void()>;

    /// What it returns, unless null, is called on the same thread when others may begin already.
    using Work = std::function<Answer(const Stop &)>;

    BackgroundJob() = default;
    ~BackgroundJob() { close(); }
    BackgroundJob(const BackgroundJob &) = delete;
    BackgroundJob &operator=(const BackgroundJob &) = delete;

    /** Does the work on a thread of its own. \return false, with nothing done, while another is
     * under way */
    bool begin(Work work);

    /// The same on the caller's thread, without an answer; returns when it is done.
    bool run(const std::function<void(const Stop &)> &work);

    /// Ends the work under way, and waits for that. Does nothing when there is none.
    void stop();

    /// stop(), and no work begins any more.
    void close();

    /**
     * Closes it when Qt's application ends: before main's objects go, which the work may call, and
     * at the latest with the application itself.
     */
    void closeWithApplication();

private:
    bool take();
    void release();

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_busy = false; // guarded by m_mutex, as all below
    bool m_stop = false;
    bool m_closed = false;
    std::thread m_thread;
};

} // namespace portable
