// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

#include <functional>
#include <thread>

namespace statussocket {

/**
 * Answers each connection to a local socket with a text, and closes it. For programs of this user
 * alone: the socket is in a folder that nobody else may enter, and a peer of another user gets
 * nothing. What it sends is never read.
 *
 * A thread of its own answers, which sleeps until somebody asks: the main thread may be held up
 * by just what the status is to tell.
 */
class StatusListener
{
public:
    /// Makes the text. Called on the listener's thread, one call at a time.
    using Answer = std::function<QByteArray()>;

    /**
     * Listens. A socket that a server has left behind is replaced, one at which a server listens
     * isn't. When it can't listen, a log line says why, and it does nothing.
     * \param path  of the socket; its folder is made if it is missing
     */
    StatusListener(const QString &path, Answer answer);

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
    int m_socket = -1;
    int m_stop = -1; ///< an eventfd
    std::thread m_thread;
};

} // namespace statussocket
