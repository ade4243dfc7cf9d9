// SPDX-License-Identifier: MIT
#pragma once

#include <deque>
#include <functional>
#include <mutex>

namespace base {

/**
 * Functions on their way from one thread to another, first in, first out. Any thread.
 *
 * The other thread is woken by Qt (an event, a thread pool), which carries no data: the thread
 * sanitizer doesn't see the locks inside Qt, but it does see this one.
 */
class TaskQueue
{
public:
    /// Appends a task. Wake the other thread afterwards, once for each task.
    void push(std::function<void()> task);

    /// Removes the oldest task and runs it, without holding the lock. The queue must not be empty.
    void runNext();

private:
    std::mutex m_mutex;
    std::deque<std::function<void()>> m_tasks; // guarded by m_mutex
};

} // namespace base
