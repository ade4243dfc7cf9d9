// SPDX-License-Identifier: MIT
#include "base/freememory.h"

#include <QCoreApplication>
#include <QTimer>
#include <malloc.h>

#include <chrono>

namespace base {

namespace {

constexpr std::chrono::minutes interval{1}; // takes some milliseconds, and as many to get it again

} // namespace

void returnFreeMemory(const std::function<void()> &further)
{
    auto *timer = new QTimer(QCoreApplication::instance());
    timer->setTimerType(Qt::VeryCoarseTimer);
    QObject::connect(timer, &QTimer::timeout, timer, [further] {
        further();
        malloc_trim(0);
    });
    timer->start(interval);
}

} // namespace base
