// SPDX-License-Identifier: MIT
#include "portable/base/mainthread.h"

#include <QCoreApplication>
#include <QEvent>

#include <deque>
#include <mutex>

namespace portable {

namespace {

// A queue of our own, whose lock the thread sanitizer understands; Qt's events carry nothing.
std::mutex mutex;
std::deque<std::function<void()>> answers; // guarded by mutex

/// Lives on the main thread and gives one answer for each event.
class Answers : public QObject
{
public:
    Answers() { moveToThread(QCoreApplication::instance()->thread()); }

protected:
    void customEvent(QEvent * /*event*/) override
    {
        std::function<void()> answer;
        {
            const std::lock_guard<std::mutex> lock(mutex);
            answer = std::move(answers.front());
            answers.pop_front();
        }
        answer();
    }
};

} // namespace

void postToMainThread(std::function<void()> answer)
{
    static Answers receiver;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        answers.push_back(std::move(answer));
    }
    QCoreApplication::postEvent(&receiver, new QEvent(QEvent::User));
}

} // namespace portable
