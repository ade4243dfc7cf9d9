// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace base {

/**
 * Steady time, and waiting by it. Whatever has to wait for a time takes its clock from its owner or
 * from shared(), so that a test can use one whose time it sets itself (tests/manualclock.h).
 *
 * Every function may be called from any thread.
 */
class Clock
{
public:
    using Duration = std::chrono::steady_clock::duration;
    using TimePoint = std::chrono::steady_clock::time_point;

    virtual ~Clock();
    Clock(const Clock &) = delete;
    Clock &operator=(const Clock &) = delete;

    /// The real clock: std::chrono::steady_clock.
    static Clock &steady();

    /// The clock of this process: steady(), unless a test has set another.
    static Clock &shared();

    /// Replaces the shared clock, which must outlive its users; null: steady() again. For tests.
    static void setShared(Clock *clock);

    virtual TimePoint now() const = 0;

    /**
     * Waits like std::condition_variable::wait_until: until notified or until that time; it may
     * also return without either.
     * \param lock  locked; released while waiting
     * \return whether the time has been reached
     */
    virtual std::cv_status waitUntil(std::condition_variable &condition,
                                     std::unique_lock<std::mutex> &lock, TimePoint time) = 0;

    /// Waits until the predicate holds or until that time. \return the predicate's last result
    template <class Predicate>
    bool waitUntil(std::condition_variable &condition, std::unique_lock<std::mutex> &lock,
                   TimePoint time, Predicate predicate)
    {
        while (!predicate()) {
            if (waitUntil(condition, lock, time) == std::cv_status::timeout) {
                return predicate();
            }
        }
        return true;
    }

    /// The same for a period from now on.
    std::cv_status waitFor(std::condition_variable &condition, std::unique_lock<std::mutex> &lock,
                           Duration period)
    {
        return waitUntil(condition, lock, now() + period);
    }
    template <class Predicate>
    bool waitFor(std::condition_variable &condition, std::unique_lock<std::mutex> &lock,
                 Duration period, Predicate predicate)
    {
        return waitUntil(condition, lock, now() + period, predicate);
    }

    /// Blocks the calling thread for this period.
    void sleepFor(Duration period);

protected:
    Clock() = default;
};

} // namespace base
