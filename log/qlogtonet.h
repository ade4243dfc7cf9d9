// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QString>

#include <memory>

/**
 * The network log: a TCP server that copies every log message to every connected listener, as raw
 * UTF-8 without terminators or lengths. What listeners send is discarded.
 *
 * Owned by QLog, which runs it in a thread of its own. It may be created in any thread and moved
 * afterwards; everything else happens in the thread it lives in. Failures are not reported: if the
 * port can't be bound there are no listeners, and write errors are left to the socket.
 */
class QLogToNet : public QObject
{
    Q_OBJECT

public:
    /**
     * Bytes that may be queued for one listener, not counting the kernel's socket buffers. A slow
     * listener with more than that is disconnected at the next message; the others are unaffected.
     */
    static constexpr qint64 maxWaitingBytes = qint64(8) * 1024 * 1024;

    /// Starts listening at once, on all IPv4 addresses.
    explicit QLogToNet(unsigned short port, QObject *parent = nullptr);
    /// Closes the port and drops the listeners.
    ~QLogToNet() override;

public Q_SLOTS:
    /// Sends the message to every listener, in the order in which they connected.
    void slot_toNet(const QString &message);

private:
    void acceptClients();
    void removeClient();

    struct Record;
    const std::unique_ptr<Record> m_record;
};
