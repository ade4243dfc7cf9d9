// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QThread>

#include <condition_variable>
#include <list>
#include <mutex>
#include <utility>

/**
 * Compares the faces in two images for lImageMatch. Of the requests that arrive during a comparison
 * only the newest is served; the others get no reply.
 */
class FaceMatchThread : public QThread
{
    Q_OBJECT

public:
    /// The server's instance, created and started by the first call.
    static FaceMatchThread *instance();

    FaceMatchThread();
    ~FaceMatchThread() override; ///< Ends the thread after the current comparison.

    /// Requests a comparison of two image files. Any thread; never blocks for a running comparison.
    void match(const QString &path1, const QString &path2);

Q_SIGNALS:
    /// The framed score. Emitted by this thread.
    void sig_msg(QByteArray text);

protected:
    void run() override;

private:
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::list<std::pair<QString, QString>> m_queue; // guarded by m_mutex
    bool m_running = true; // guarded by m_mutex
};
