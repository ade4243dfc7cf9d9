// SPDX-License-Identifier: MIT
#include "base/mainthread.h"

#include "base/taskqueue.h"

#include <QCoreApplication>
#include <QEvent>

#include <utility>

namespace base {

namespace {

/// Never deleted: worker threads may post until the very end of the process.
TaskQueue &tasks()
{
    static auto *const queue = new TaskQueue;
    return *queue;
}

/**
 * Lives on the main thread and runs one task for each event. It has no members: the thread
 * sanitizer doesn't see how Qt hands an object to that thread which another one has made.
 */
class Receiver : public QObject
{
public:
    Receiver() { moveToThread(QCoreApplication::instance()->thread()); }

protected:
    void customEvent(QEvent * /*event*/) override { tasks().runNext(); }
};

} // namespace

void postToMainThread(std::function<void()> task)
{
    if (!QCoreApplication::instance()) {
        return;
    }
    static auto *const receiver = new Receiver;
    tasks().push(std::move(task));
    QCoreApplication::postEvent(receiver, new QEvent(QEvent::User));
}

} // namespace base
