// SPDX-License-Identifier: MIT
#include "base/taskqueue.h"

#include <utility>

namespace base {

void TaskQueue::push(std::function<void()> task)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_tasks.push_back(std::move(task));
}

void TaskQueue::runNext()
{
    std::function<void()> task;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        task = std::move(m_tasks.front());
        m_tasks.pop_front();
    }
    task();
}

} // namespace base
