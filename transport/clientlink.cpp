// SPDX-License-Identifier: MIT
#include "transport/clientlink.h"

#include "base/freememory.h"
#include "transport/pagesocket.h"

#include <QThread>
#include <QWebSocket>
#include <QtEndian>

#include <cstring>
#include <utility>

ClientLink::ClientLink(QWebSocket *socket, PageSocket *page, ClientQueue *queue,
                       const Limits &limits)
    : QObject(socket)
    , m_limits(limits)
    , m_socket(socket)
    , m_page(page)
    , m_queue(queue)
{
    m_page->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    m_page->setSocketOption(QAbstractSocket::SendBufferSizeSocketOption, kernelBuffer);
    connect(socket, &QWebSocket::bytesWritten, this, &ClientLink::dequeueWritten);
}

void ClientLink::sendFrame(const QByteArray &frame, base::Clock::TimePoint fetched)
{
    Q_ASSERT(QThread::currentThread() == thread());
    if (m_page->state() != QAbstractSocket::ConnectedState || m_page->isRefused()) {
        return;
    }
    if (m_page->bytesToWrite() == 0) {
        m_waiting.clear();
        m_written = 0;
    }
    if (m_waiting.size() >= frameLimit) {
        ++m_framesDropped;
        return;
    }
    ++m_framesSent;
    m_page->write(frame);
    m_waiting.enqueue({m_written + m_page->bytesToWrite(), fetched});
    m_page->flush(); // now, not after a turn of the event loop
}

qint64 ClientLink::unread() const
{
    return m_page->bytesToWrite();
}

void ClientLink::checkUnread()
{
    const qint64 before = m_unread;
    noteUnread();
    if (before == 0) {
        m_lastRead = base::Clock::shared().now(); // it had read everything until now
    }
    if (before > m_limits.unreadMost && m_unread > before) {
        m_page->drop(QStringLiteral("it has %1 MiB unread").arg(m_unread / Limits::MiB));
    }
}

/// Holds the page's commands back, or lets them go on.
void ClientLink::noteUnread()
{
    m_unread = unread();
    if (m_unread <= m_limits.unreadWait) {
        m_hold.release();
        m_told = false;
    } else if (!m_hold && m_queue) {
        m_hold = m_queue->hold(m_socket);
    }
}

void ClientLink::checkTimes()
{
    checkUnread();
    if (m_unread <= m_limits.unreadWait || stalledFor() <= m_limits.unreadStall) {
        return;
    }
    const QString state =
        QStringLiteral("has %1 MiB unread and has read nothing for %2 s")
            .arg(m_unread / Limits::MiB)
            .arg(std::chrono::duration_cast<std::chrono::seconds>(stalledFor()).count());
    if (m_unread > m_limits.unreadStalled) {
        m_page->drop(QStringLiteral("it ") + state);
    } else if (!std::exchange(m_told, true)) {
        m_page->log(state + QStringLiteral(": its commands wait"));
    }
}

base::Clock::Duration ClientLink::stalledFor() const
{
    return m_unread > 0 ? base::Clock::shared().now() - m_lastRead : base::Clock::Duration::zero();
}

void ClientLink::dequeueWritten(qint64 bytes)
{
    m_lastRead = base::Clock::shared().now();
    m_written += bytes;
    while (!m_waiting.isEmpty() && m_waiting.head().end <= m_written) {
        const Waiting frame = m_waiting.dequeue();
        if (frame.fetched != base::Clock::TimePoint()) {
            m_ages.add(m_lastRead - frame.fetched);
        }
    }
    noteUnread();
}

void ClientLink::webSocketTextFrame(const QByteArray &text, QByteArray &buffer)
{
    constexpr uchar finalText = 0x81; // FIN, opcode 1
    uchar header[10] = {finalText};
    int headerLength = 2;
    if (text.size() < 126) {
        header[1] = uchar(text.size());
    } else if (text.size() <= 0xFFFF) {
        header[1] = 126;
        qToBigEndian(quint16(text.size()), header + 2);
        headerLength = 4;
    } else {
        header[1] = 127;
        qToBigEndian(quint64(text.size()), header + 2);
        headerLength = 10;
    }
    if (!buffer.isDetached()) {
        buffer = QByteArray();
    }
    base::resizeBuffer(buffer, headerLength + text.size());
    std::memcpy(buffer.data(), header, std::size_t(headerLength));
    std::memcpy(buffer.data() + headerLength, text.constData(), std::size_t(text.size()));
}
