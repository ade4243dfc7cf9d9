// SPDX-License-Identifier: MIT
#include "upload/uploadpool.h"

#include "base/mainthread.h"
#include "base/taskqueue.h"

#include <QDebug>
#include <QRunnable>
#include <QThreadPool>

#include <algorithm>
#include <utility>

namespace {

/// Runs the queued tasks on the threads of the global pool, one for each start().
class PoolTasks : public QRunnable
{
public:
    PoolTasks() { setAutoDelete(false); }

    void start(std::function<void()> task)
    {
        m_tasks.push(std::move(task));
        QThreadPool::globalInstance()->start(this);
    }

    void run() override { m_tasks.runNext(); }

private:
    base::TaskQueue m_tasks;
};

PoolTasks &poolTasks()
{
    static PoolTasks tasks;
    return tasks;
}

} // namespace

UploadPool &UploadPool::instance()
{
    static UploadPool pool;
    return pool;
}

UploadPool::UploadPool()
{
    QThreadPool::globalInstance()->setMaxThreadCount(threads);
}

void UploadPool::start(QObject *client, std::function<void()> upload,
                       std::function<void(bool)> done)
{
    Job job{client, client, std::move(upload), std::move(done)};
    if (mayRun(job)) {
        run(std::move(job));
    } else if (m_waiting.size() < std::size_t(waitingUploads)) {
        m_waiting.push_back(std::move(job));
    } else {
        qWarning() << "upload: refused," << waitingUploads << "uploads wait already";
        base::postToMainThread([done = std::move(job.done)] { done(false); });
    }
}

bool UploadPool::mayRun(const Job &job) const
{
    const auto running = m_running.find(job.key);
    return m_runningOfAll < threads
        && (running == m_running.end() || running->second < threadsOfClient);
}

void UploadPool::run(Job job)
{
    ++m_running[job.key];
    ++m_runningOfAll;
    poolTasks().start(
        [this, key = job.key, upload = std::move(job.upload), done = std::move(job.done)] {
            upload();
            base::postToMainThread([this, key, done] {
                --m_runningOfAll;
                const auto running = m_running.find(key);
                if (--running->second == 0) {
                    m_running.erase(running);
                }
                runWaiting();
                done(true);
            });
        });
}

/// Starts those that may run by now, the oldest first; drops those of clients that have gone.
void UploadPool::runWaiting()
{
    std::deque<Job> waiting;
    for (Job &job : std::exchange(m_waiting, {})) {
        if (job.key && !job.client) {
            base::postToMainThread([done = std::move(job.done)] { done(false); });
        } else if (mayRun(job)) {
            run(std::move(job));
        } else {
            waiting.push_back(std::move(job));
        }
    }
    m_waiting = std::move(waiting);
}
