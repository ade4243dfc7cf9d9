// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QString>

#include <memory>

/**
 * The network log: a TCP server that copies every log message to every connected listener, as raw
 * UTF-8 with no terminator or length in between. What listeners send is thrown away.
 *
 * Owned and run by QLog in a thread of its own. It may be created in any thread and moved then;
 * everything else happens in the thread it lives in. Nothing here reports a failure: a port that
 * can't be bound leaves a network log without listeners, a write error is left to the socket.
 */
class QLogToNet : public QObject
{
    Q_OBJECT

public:
    /**
     * Bytes that may wait for one listener, beside what the system's own socket buffers hold. Who
     * reads so slowly that more waits is disconnected at the next message; the others go on.
     */
    static constexpr qint64 MaxWaitingBytes = 8 * 1024 * 1024;

    /// Listens at once, on all IPv4 addresses.
    explicit QLogToNet(unsigned short port, QObject *parent = nullptr);
    /// Closes the port and drops the listeners.
    ~QLogToNet() override;

public Q_SLOTS:
    /// Sends the message to every listener, in the order they came.
    void slot_toNet(const QString &message);

private:
    void acceptClients();
    void removeClient();

    struct Record;
    const std::unique_ptr<Record> m_record;
};
