// SPDX-License-Identifier: MIT
#include "dispatch/clientqueue.h"

#include <utility>

namespace {

qint64 bytesOf(const QString &text)
{
    return qint64(text.size()) * qint64(sizeof(QChar));
}

} // namespace

struct ClientQueue::Client
{
    explicit Client(QObject *theObject)
        : object(theObject)
    {
    }

    /// Whether its next text may be carried out.
    bool mayRun() const { return !texts.empty() && holds == 0 && !running; }

    QObject *const object;
    std::deque<QString> texts;
    qint64 bytes = 0;
    int holds = 0;
    bool running = false; // a text of it, perhaps within an event loop of a device library
    bool inRing = false;
    base::Clock::Duration spent{}; // carrying out its texts since the event loop turned
};

ClientQueue::Hold &ClientQueue::Hold::operator=(Hold &&other) noexcept
{
    if (this != &other) {
        release();
        m_queue = other.m_queue;
        m_client = std::move(other.m_client);
    }
    return *this;
}

void ClientQueue::Hold::release()
{
    const ClientPtr client = std::exchange(m_client, nullptr);
    if (!client) {
        return;
    }
    --client->holds;
    if (m_queue) {
        m_queue->queueUp(client);
    }
}

ClientQueue::ClientQueue(QObject *parent)
    : QObject(parent)
{
    m_timer.setInterval(0);
    connect(&m_timer, &QTimer::timeout, this, &ClientQueue::turn);
}

ClientQueue::~ClientQueue() = default;

void ClientQueue::push(QObject *object, const QString &text)
{
    ClientPtr &client = m_clients[object];
    if (!client) {
        client = std::make_shared<Client>(object);
    }
    client->texts.push_back(text);
    client->bytes += bytesOf(text);
    m_bytes += bytesOf(text);
    m_touched.push_back(client);
    m_timer.start();
}

void ClientQueue::run(QObject *object)
{
    const ClientPtr client = m_clients.value(object);
    if (!client || client->inRing) {
        return;
    }
    while (client->mayRun() && client->spent <= m_turn) {
        runNext(client);
    }
    queueUp(client);
}

void ClientQueue::runNext(const ClientPtr &client)
{
    const QString text = std::move(client->texts.front());
    client->texts.pop_front();
    client->bytes -= bytesOf(text);
    m_bytes -= bytesOf(text);
    const auto start = base::Clock::shared().now();
    client->running = true;
    m_run(client->object, text);
    client->running = false;
    client->spent += base::Clock::shared().now() - start;
}

/// Queues the client for its turn if it has something to carry out.
void ClientQueue::queueUp(const ClientPtr &client)
{
    if (client->mayRun() && !client->inRing) {
        client->inRing = true;
        m_ring.push_back(client);
        m_timer.start();
    }
}

void ClientQueue::turn()
{
    for (const ClientPtr &client : std::exchange(m_touched, {})) {
        client->spent = {};
        queueUp(client); // for texts that nobody has called run() for
    }
    while (!m_ring.empty()) {
        const ClientPtr client = std::move(m_ring.front());
        m_ring.pop_front();
        client->inRing = false;
        if (client->mayRun()) {
            runNext(client);
            m_touched.push_back(client);
            queueUp(client);
            break;
        }
    }
    if (m_ring.empty() && m_touched.empty()) {
        m_timer.stop();
    }
}

ClientQueue::Hold ClientQueue::hold(QObject *object)
{
    Hold hold;
    if (const ClientPtr client = m_clients.value(object)) {
        ++client->holds;
        hold.m_queue = this;
        hold.m_client = client;
    }
    return hold;
}

int ClientQueue::leave(QObject *object)
{
    const base::Clock &clock = base::Clock::shared();
    const auto end = clock.now() + m_farewell;
    const ClientPtr client = m_clients.value(object);
    while (client && client->mayRun() && clock.now() <= end) {
        runNext(client);
    }
    return forget(object);
}

int ClientQueue::forget(QObject *object)
{
    const ClientPtr client = m_clients.take(object);
    if (!client) {
        return 0;
    }
    m_bytes -= std::exchange(client->bytes, 0);
    return int(std::exchange(client->texts, {}).size());
}

int ClientQueue::waitingTexts(QObject *object) const
{
    const ClientPtr client = m_clients.value(object);
    return client ? int(client->texts.size()) : 0;
}

qint64 ClientQueue::waitingBytes(QObject *object) const
{
    const ClientPtr client = m_clients.value(object);
    return client ? client->bytes : 0;
}
