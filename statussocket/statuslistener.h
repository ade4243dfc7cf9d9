// SPDX-License-Identifier: MIT
#pragma once

#include "log/refusallog.h"

#include <QByteArray>
#include <QString>

#include <chrono>
#include <functional>
#include <thread>

namespace statussocket {

/**
 * Answers each connection to a local socket with a text, and closes it. For programs of this user
 * alone: the socket is in a folder that nobody else may enter, and a peer of another user gets
 * nothing. What it sends is never read.
 *
 * A thread of its own answers, which sleeps until somebody asks: the main thread may be held up
 * by just what the status is to show.
 */
class StatusListener
{
public:
    /// Makes the text. Called on the listener's thread, one call at a time.
    using Answer = std::function<QByteArray()>;

    /**
     * Listens. What a killed server has left behind is replaced; a running server keeps its socket
     * by a lock on "<path>.lock". When it can't listen, a log line says why, and it does nothing.
     * \param path      of the socket; its folder is made if it is missing
     * \param freshFor  how long an answer is given again: whoever asks all the time must not keep
     *                  the main thread busy
     */
    StatusListener(const QString &path, Answer answer,
                   std::chrono::milliseconds freshFor = std::chrono::milliseconds(20));

    /// Stops, and removes the socket.
    ~StatusListener();
    StatusListener(const StatusListener &) = delete;
    StatusListener &operator=(const StatusListener &) = delete;

    bool isListening() const { return m_socket >= 0; }

private:
    bool listen();
    void run();
    void answer(int peer);

    const QString m_path;
    const Answer m_answer;
    const std::chrono::milliseconds m_freshFor;
    int m_lock = -1;
    int m_socket = -1;
    int m_stop = -1; ///< an eventfd
    QByteArray m_text; ///< the latest answer; this thread's, as the two below
    std::chrono::steady_clock::time_point m_made;
    RefusalLog m_refusals{"status", 1};
    std::thread m_thread;
};

} // namespace statussocket
