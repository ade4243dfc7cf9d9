// SPDX-License-Identifier: MIT
#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QTimer>

/// How long to wait for what must come; only a failing test waits that long.
constexpr int patienceMs = 30000;

/// QTest::qWaitFor() without its sleep of 10 ms between any two turns of the event loop.
template <class Condition> bool waitFor(Condition condition, int limitMs = patienceMs)
{
    QTimer look;
    look.start(10); // for what comes without an event, and the deadline
    const QDeadlineTimer deadline(limitMs);
    while (!condition()) {
        if (deadline.hasExpired()) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    return true;
}
