// SPDX-License-Identifier: MIT
#include "base/freememory.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QTimer>
#include <malloc.h>

#include <chrono>

namespace base {

namespace {

constexpr std::chrono::minutes interval{1}; // takes some milliseconds, and as many to get it again

} // namespace

void resizeBuffer(QByteArray &buffer, int size)
{
    constexpr int small = 1 << 20;
    if (buffer.capacity() > small && buffer.capacity() / 4 > size) {
        buffer = QByteArray();
    }
    buffer.resize(size);
}

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
