// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QPointer>

#include <deque>
#include <functional>
#include <unordered_map>

/**
 * Runs uploads on the global thread pool, so that nobody waits for a server that doesn't answer: it
 * has many threads, and a client that keeps many of them busy waits for its own uploads, not the
 * others for it. Main thread only.
 */
class UploadPool
{
public:
    /// Uploads that run at once. They mostly wait for the network: a thread is some 100 kB.
    static constexpr int threads = 256;
    /// Of one client.
    static constexpr int threadsOfClient = 32;
    /// Uploads that wait for a thread; further ones fail at once.
    static constexpr int waitingUploads = 1000;

    static UploadPool &instance();

    /**
     * Runs an upload, now or when a thread is free.
     * \param client  who asked for it; null: the server itself. When it has gone before the upload
     *                begins, there is no upload
     * \param upload  called on a thread of the pool; must not throw
     * \param done    called on the main thread afterwards; false: there was no upload. Never within
     *                this call
     */
    void start(QObject *client, std::function<void()> upload, std::function<void(bool)> done);

private:
    struct Job
    {
        QObject *key; ///< The client's address, to count by; it may have gone.
        QPointer<QObject> client;
        std::function<void()> upload;
        std::function<void(bool)> done;
    };

    UploadPool();
    bool mayRun(const Job &job) const;
    void run(Job job);
    void runWaiting();

    std::deque<Job> m_waiting;
    std::unordered_map<QObject *, int> m_running; // by client
    int m_runningOfAll = 0;
};
