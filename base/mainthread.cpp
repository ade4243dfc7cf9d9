// SPDX-License-Identifier: MIT
#include "base/mainthread.h"

#include "base/taskqueue.h"

#include <QCoreApplication>
#include <QEvent>

#include <utility>

namespace base {

namespace {

/// Lives on the main thread and runs one task for each event.
class Receiver : public QObject
{
public:
    Receiver() { moveToThread(QCoreApplication::instance()->thread()); }

    void post(std::function<void()> task)
    {
        m_tasks.push(std::move(task));
        QCoreApplication::postEvent(this, new QEvent(QEvent::User));
    }

protected:
    void customEvent(QEvent * /*event*/) override { m_tasks.runNext(); }

private:
    TaskQueue m_tasks;
};

} // namespace

void postToMainThread(std::function<void()> task)
{
    if (!QCoreApplication::instance()) {
        return;
    }
    // Never deleted: worker threads may post until the very end of the process.
    static auto *const receiver = new Receiver;
    receiver->post(std::move(task));
}

} // namespace base
