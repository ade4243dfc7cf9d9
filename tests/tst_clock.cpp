// SPDX-License-Identifier: MIT
#include "tests/manualclock.h"

#include <QtTest>

#include <atomic>
#include <thread>

using base::Clock;
using namespace std::chrono_literals;

class TestClock : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void theSteadyClockWaitsForItsTimeOrANotification()
    {
        Clock &clock = Clock::steady();
        std::mutex mutex;
        std::condition_variable condition;
        bool ready = false;
        std::unique_lock<std::mutex> lock(mutex);
        const Clock::TimePoint start = clock.now();
        QVERIFY(!clock.waitFor(condition, lock, 20ms, [&] { return ready; }));
        QVERIFY(clock.now() - start >= 20ms);

        std::thread other([&] {
            const std::lock_guard<std::mutex> guard(mutex);
            ready = true;
            condition.notify_one();
        });
        QVERIFY(clock.waitFor(condition, lock, 10min, [&] { return ready; }));
        lock.unlock();
        other.join();
    }

    void advancingWakesThoseWhoseTimeHasCome()
    {
        ManualClock clock;
        std::atomic<int> woken{0};
        const auto sleeper = [&](Clock::Duration period) {
            return std::thread([&clock, &woken, period] {
                clock.sleepFor(period);
                ++woken;
            });
        };
        std::thread second = sleeper(1s);
        QVERIFY(clock.waitForWaiter(1s));
        std::thread minute = sleeper(1min);
        QVERIFY(clock.waitForWaiter(1min));

        clock.advance(999ms);
        QCOMPARE(woken.load(), 0);
        clock.advance(1ms);
        second.join();
        QCOMPARE(woken.load(), 1);
        clock.runFree();
        minute.join();
        clock.sleepFor(24h);
        QVERIFY(clock.takeWaits() == (std::vector<std::chrono::milliseconds>{1s, 1min, 24h}));
    }

    void theSharedClockIsTheSteadyOneUnlessReplaced()
    {
        ManualClock clock;
        Clock::setShared(&clock);
        QCOMPARE(&Clock::shared(), static_cast<Clock *>(&clock));
        Clock::setShared(nullptr);
        QCOMPARE(&Clock::shared(), &Clock::steady());
    }
};

QTEST_GUILESS_MAIN(TestClock)
#include "tst_clock.moc"
