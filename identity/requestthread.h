// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QThread>

#include <condition_variable>
#include <mutex>

/**
 * A worker that serves counted requests one after another: none is merged or dropped, and each gets
 * its own reply. It runs from its construction to the end of the program.
 *
 * It holds its mutex for a whole batch, so a request made meanwhile blocks its caller until the
 * batch is done.
 *
 * A derived class starts the thread in its constructor and calls end() in its destructor.
 */
class RequestThread : public QThread
{
    Q_OBJECT

public:
    /// Adds a request and wakes the thread. Any thread.
    void request();

Q_SIGNALS:
    /// The framed reply to one request, in the local 8-bit encoding. Emitted by this thread.
    void sig_msg(QByteArray text);

protected:
    /// \param command  whose requests these are: its name frames the replies
    explicit RequestThread(const QString &command)
        : m_command(command)
    {
    }

    /// Serves one request on this thread: calls the device and returns the result. What it throws
    /// is answered as a failure.
    virtual QString serve() = 0;

    /// Ends the thread after the current batch, and waits for it.
    void end();

    void run() override;

private:
    const QString m_command;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    int m_requests = 0; // guarded by m_mutex
    bool m_running = true; // guarded by m_mutex
};
