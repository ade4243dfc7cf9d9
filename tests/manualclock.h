// SPDX-License-Identifier: MIT
#pragma once

#include "base/clock.h"

#include <algorithm>
#include <list>
#include <utility>
#include <vector>

/**
 * A clock for tests. Its time moves only when the test says so; threads whose time has come wake at
 * once:
 *
 *     ManualClock clock;
 *     Worker worker(clock);                      // waits a second on a thread of its own
 *     QVERIFY(clock.waitForWaiter());            // it has got there
 *     clock.advance(1s);
 *
 *     clock.runFree();                           // no wait takes longer than a moment from now on
 *     ...
 *     QCOMPARE(clock.takeWaits(), (std::vector<std::chrono::milliseconds>{500ms, 1000ms}));
 *
 * It must outlive the threads that use it.
 */
class ManualClock : public base::Clock
{
public:
    using Clock::waitUntil;
    using Milliseconds = std::chrono::milliseconds;

    TimePoint now() const override
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_now;
    }

    std::cv_status waitUntil(std::condition_variable &condition, std::unique_lock<std::mutex> &lock,
                             TimePoint time) override
    {
        std::unique_lock<std::mutex> guard(m_mutex);
        m_waits.push_back(std::chrono::duration_cast<Milliseconds>(time - m_now));
        if (time <= m_now) {
            return std::cv_status::timeout;
        }
        const auto self = m_waiters.insert(m_waiters.end(), {&condition, lock.mutex(), time});
        const bool free = m_free;
        m_changed.notify_all();
        guard.unlock();

        const bool timedOut = free && condition.wait_for(lock, moment) == std::cv_status::timeout;
        if (!free) {
            condition.wait(lock);
        }

        lock.unlock(); // advance() may need it before it lets go of this waiter
        guard.lock();
        m_changed.wait(guard, [self] { return !self->beingWoken; });
        m_waiters.erase(self);
        if (timedOut) {
            m_now = std::max(m_now, time);
        }
        const bool reached = time <= m_now;
        guard.unlock();
        lock.lock();
        return reached ? std::cv_status::timeout : std::cv_status::no_timeout;
    }

    /// Moves the time on. Not with a lock held that a waiter needs.
    void advance(Duration period)
    {
        {
            const std::lock_guard<std::mutex> guard(m_mutex);
            m_now += period;
        }
        wakeDue();
    }

    /// From now on each wait ends by itself after a real millisecond and moves the time to its end.
    void runFree()
    {
        {
            const std::lock_guard<std::mutex> guard(m_mutex);
            m_free = true;
            for (const Waiter &waiter : m_waiters) {
                m_now = std::max(m_now, waiter.time);
            }
        }
        wakeDue();
    }

    /**
     * Blocks until a thread waits for a time that is not yet reached and at least that far off.
     * \return false when none does within ten real seconds
     */
    bool waitForWaiter(Duration atLeast = Duration::zero()) const
    {
        std::unique_lock<std::mutex> guard(m_mutex);
        return m_changed.wait_for(guard, std::chrono::seconds(10), [&] {
            return std::any_of(m_waiters.begin(), m_waiters.end(), [&](const Waiter &waiter) {
                return waiter.time > m_now && waiter.time - m_now >= atLeast;
            });
        });
    }

    /// The lengths of the waits begun since the last call, in order.
    std::vector<Milliseconds> takeWaits()
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return std::exchange(m_waits, {});
    }

private:
    struct Waiter
    {
        std::condition_variable *condition;
        std::mutex *mutex;
        TimePoint time;
        bool beingWoken = false;
    };

    static constexpr Milliseconds moment{1};

    void wakeDue()
    {
        std::vector<Waiter *> due;
        {
            const std::lock_guard<std::mutex> guard(m_mutex);
            for (Waiter &waiter : m_waiters) {
                if (waiter.time <= m_now) {
                    waiter.beingWoken = true;
                    due.push_back(&waiter);
                }
            }
        }
        for (Waiter *waiter : due) {
            // With its lock, so that it is either not waiting yet to see the new time or asleep.
            const std::lock_guard<std::mutex> lock(*waiter->mutex);
            waiter->condition->notify_all();
        }
        const std::lock_guard<std::mutex> guard(m_mutex);
        for (Waiter *waiter : due) {
            waiter->beingWoken = false;
        }
        m_changed.notify_all();
    }

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    TimePoint m_now{std::chrono::hours(1)}; // guarded by m_mutex, as all below
    bool m_free = false;
    std::list<Waiter> m_waiters;
    std::vector<Milliseconds> m_waits;
};
