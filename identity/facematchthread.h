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
 * Compares the faces of two images for lImageMatch. Of the requests that have piled up while one
 * was compared only the newest is; the others get no reply.
 */
class FaceMatchThread : public QThread
{
    Q_OBJECT

public:
    /// The server's one; made, and started, at the first call.
    static FaceMatchThread *instance();

    FaceMatchThread();
    ~FaceMatchThread() override; ///< Ends the thread after the comparison under way.

    /// Asks for a comparison of two image files. Any thread; never blocks for one under way.
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
