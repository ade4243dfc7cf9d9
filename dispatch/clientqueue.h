// SPDX-License-Identifier: MIT
#pragma once

#include "base/clock.h"

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>

#include <deque>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

/**
 * The texts that clients have sent and that are to be carried out, each client's in their order.
 *
 * A text is carried out as soon as it has come, unless earlier ones of its client wait, the client
 * is held, or its texts have kept the main thread busy for a turn. Those that wait are carried out
 * one a turn of the event loop, the clients by turns, so that other clients are served between.
 *
 * A client is a QObject of which only the address counts. Main thread only.
 */
class ClientQueue : public QObject
{
    Q_OBJECT

    struct Client;

public:
    using Run = std::function<void(QObject *client, const QString &text)>;

    /**
     * While a hold on a client exists, its texts wait: for an answer that is still being worked on,
     * or until it has read those it got. Other clients are served. Ends with the object, or by
     * release(); it may outlive the client and the queue.
     */
    class Hold
    {
    public:
        Hold() = default;
        Hold(Hold &&other) noexcept = default;
        Hold &operator=(Hold &&other) noexcept;
        ~Hold() { release(); }
        Hold(const Hold &) = delete;
        Hold &operator=(const Hold &) = delete;

        void release();
        explicit operator bool() const { return m_client != nullptr; }

    private:
        friend class ClientQueue;
        QPointer<ClientQueue> m_queue;
        std::shared_ptr<Client> m_client;
    };

    explicit ClientQueue(QObject *parent = nullptr);
    ~ClientQueue() override;

    /// Sets what carries a text out. It may call every function here.
    void setRun(Run run) { m_run = std::move(run); }

    /// Sets how long one client's texts may take before the event loop turns.
    void setTurn(base::Clock::Duration turn) { m_turn = turn; }

    /// Sets how long the last texts of a client that leaves may take; one that has begun goes on.
    void setFarewell(base::Clock::Duration farewell) { m_farewell = farewell; }

    /// Appends a text. It is carried out by run(), or at a later turn of the event loop.
    void push(QObject *client, const QString &text);

    /// Carries out this client's texts now, as far as the rules above admit.
    void run(QObject *client);

    /**
     * Holds a client back. A text of it that is being carried out goes on; the next one waits. A
     * client may be held several times.
     * \return an empty hold, for a client that has sent nothing yet or has gone
     */
    Hold hold(QObject *client);

    /**
     * A client says goodbye or has gone: carries out now what it sent before, for as long as
     * setFarewell() admits, and drops the rest, as well as all of a client that is held or in the
     * middle of a text.
     * \return how many texts were dropped
     */
    int leave(QObject *client);

    /// Drops the texts of a client, and its holds. \return how many texts
    int forget(QObject *client);

    /// Texts of a client that wait.
    int waitingTexts(QObject *client) const;
    /// The same in bytes of memory.
    qint64 waitingBytes(QObject *client) const;
    /// Of all clients.
    qint64 waitingBytes() const { return m_bytes; }

private:
    using ClientPtr = std::shared_ptr<Client>;

    void runNext(const ClientPtr &client);
    void queueUp(const ClientPtr &client);
    void turn();

    Run m_run;
    base::Clock::Duration m_turn = std::chrono::milliseconds(50);
    base::Clock::Duration m_farewell = std::chrono::seconds(1);
    QHash<QObject *, ClientPtr> m_clients;
    std::deque<ClientPtr> m_ring; // those with texts that may be carried out, by turns
    std::vector<ClientPtr> m_touched; // got a text or had one carried out since the last turn
    QTimer m_timer;
    qint64 m_bytes = 0;
};
