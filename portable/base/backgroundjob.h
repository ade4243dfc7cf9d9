// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace portable {

/**
 * Runs one piece of work at a time, each on a thread of its own. Callable from any thread except
 * from within the work.
 */
class BackgroundJob
{
public:
    using Clock = std::chrono::steady_clock;

    /// Tells the work that it must end soon, without a result.
    class Stop
    {
    public:
        explicit Stop(BackgroundJob &job)
            : m_job(job)
        {
        }
        bool isRequested() const;

        /**
         * Waits until then, by base::Clock::shared(), or until the end is requested.
         * \return whether it is requested
         */
        bool sleepUntil(Clock::time_point time) const;

    private:
        BackgroundJob &m_job;
    };

    using Answer = std::function<void()>;

    /// The answer it returns, unless null, is called on the same thread after the job is free
    /// again.
    using Work = std::function<Answer(const Stop &)>;

    BackgroundJob() = default;
    ~BackgroundJob() { close(); }
    BackgroundJob(const BackgroundJob &) = delete;
    BackgroundJob &operator=(const BackgroundJob &) = delete;

    /// Starts the work. \return false, with nothing done, while another is running or when closed
    bool begin(Work work);

    /// Does the work on the caller's thread, without an answer.
    bool run(const std::function<void(const Stop &)> &work);

    /// Requests the end of the running work, if there is any, and waits for it.
    void stop();

    /// stop(), and no further work is accepted.
    void close();

    /**
     * Closes the job when Qt's application quits: before main's objects are destroyed, which the
     * work may use, and at the latest with the application object.
     */
    void closeWithApplication();

private:
    bool take();
    void release();

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_busy = false; // guarded by m_mutex, like all below
    bool m_stop = false;
    bool m_closed = false;
    std::thread m_thread;
};

} // namespace portable
