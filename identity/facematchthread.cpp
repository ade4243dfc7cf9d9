// SPDX-License-Identifier: MIT
#include "identity/facematchthread.h"

#include "devicelib/biometrics.h"
#include "dispatch/deviceguard.h"
#include "dispatch/messagerun.h"

FaceMatchThread *FaceMatchThread::instance()
{
    static FaceMatchThread thread;
    return &thread;
}

FaceMatchThread::FaceMatchThread()
{
    setObjectName(QStringLiteral("face match"));
    start();
}

FaceMatchThread::~FaceMatchThread()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_running = false;
    }
    m_wake.notify_one();
    wait();
    // Shows the thread sanitizer, which does not know QThread::wait, that the thread has ended.
    const std::lock_guard<std::mutex> lock(m_mutex);
}

void FaceMatchThread::match(const QString &path1, const QString &path2)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_queue.emplace_back(path1, path2);
    }
    m_wake.notify_one();
}

void FaceMatchThread::run()
{
    for (;;) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_wake.wait(lock, [this] { return !m_queue.empty() || !m_running; });
        if (!m_running) {
            return;
        }
        const auto [path1, path2] = std::move(m_queue.back());
        m_queue.clear();
        lock.unlock();

        const QString command = QStringLiteral("lImageMatch");
        const int score = guarded(command, 0, [&first = path1, &second = path2] {
            return lImageMatch(first.toUtf8().constData(), second.toUtf8().constData());
        });
        Q_EMIT sig_msg(MessageRun::framed(command, QString::number(score)).toUtf8());
    }
}
