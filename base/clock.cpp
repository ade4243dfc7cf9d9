// SPDX-License-Identifier: MIT
#include "base/clock.h"

#include <atomic>

namespace base {

namespace {

class SteadyClock : public Clock
{
public:
    TimePoint now() const override { return std::chrono::steady_clock::now(); }
    std::cv_status waitUntil(std::condition_variable &condition, std::unique_lock<std::mutex> &lock,
                             TimePoint time) override
    {
        return condition.wait_until(lock, time);
    }
};

std::atomic<Clock *> replacement{nullptr};

} // namespace

Clock::~Clock() = default;

Clock &Clock::steady()
{
    static SteadyClock clock;
    return clock;
}

Clock &Clock::shared()
{
    Clock *clock = replacement;
    return clock ? *clock : steady();
}

void Clock::setShared(Clock *clock)
{
    replacement = clock;
}

void Clock::sleepFor(Duration period)
{
    std::mutex mutex;
    std::condition_variable never;
    std::unique_lock<std::mutex> lock(mutex);
    waitFor(never, lock, period, [] { return false; });
}

} // namespace base
