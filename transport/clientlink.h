// SPDX-License-Identifier: MIT
#pragma once

#include "base/clock.h"
#include "dispatch/clientqueue.h"
#include "transport/frameages.h"
#include "transport/limits.h"

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QQueue>

class PageSocket;
class QWebSocket;

/**
 * Sends preview frames to one page. A WebSocket frame is built once for all pages
 * (webSocketTextFrame) and written directly to each page's TCP socket, at a third of the cost of
 * sendTextMessage, which builds and copies it for each.
 *
 * For a page that does not read, at most frameLimit frames are queued; further ones are dropped.
 * Other texts use QWebSocket::sendTextMessage as usual; they stay in order with the frames, since
 * both write to the same socket immediately.
 *
 * Child of its WebSocket. Main thread only.
 */
class ClientLink : public QObject
{
    Q_OBJECT

public:
    /// Frames that may be queued for a page that does not read.
    static constexpr int frameLimit = 2;

    /**
     * The kernel's send buffer for a connection, in bytes (the kernel doubles it): room for a few
     * frames. Its default, up to 4 MB, would let a slow page's preview lag by seconds.
     */
    static constexpr int kernelBuffer = 384 * 1024;

    /**
     * Sets up a new connection of the server: limits its kernel buffer and enables TCP_NODELAY,
     * without which a short reply behind a large frame waits up to 40 ms for an acknowledgement.
     */
    ClientLink(QWebSocket *socket, PageSocket *page, ClientQueue *queue, const Limits &limits);

    /// The TCP socket below.
    PageSocket *page() const { return m_page; }

    /**
     * Sends a frame; drops it if frameLimit are queued or the connection is closing.
     * \param frame    the result of webSocketTextFrame()
     * \param fetched  when its picture came from the device library; zero: unknown
     */
    void sendFrame(const QByteArray &frame, base::Clock::TimePoint fetched = {});

    /// Bytes that the page has still to read, what the kernel keeps excepted.
    qint64 unread() const;

    /// \name For the status of the server
    ///@{
    quint64 framesSent() const { return m_framesSent; }
    quint64 framesDropped() const { return m_framesDropped; }
    const FrameAges &frameAges() const { return m_ages; }
    /// Remembers what the page has sent; see lastText().
    void noteText(const QString &text) { m_lastText = text.left(longestName); }
    /// The beginning of the page's last text, long enough for the name of a command.
    QString lastText() const { return m_lastText; }
    ///@}

    /// Replaces the limits.
    void setLimits(const Limits &limits) { m_limits = limits; }

    /// How long the page has read nothing though there is something, as of the last check.
    base::Clock::Duration stalledFor() const;

    /**
     * To be called when something was sent to the page: holds its commands back while it has much
     * unread, and disconnects it if it had too much already.
     */
    void checkUnread();

    /// The same; disconnects the page also if it has read nothing for too long.
    void checkTimes();

    /**
     * Builds an unmasked WebSocket text frame (RFC 6455, section 5.2), header and payload.
     * \param text    UTF-8
     * \param buffer  receives the frame; its memory is reused unless it is shared
     */
    static void webSocketTextFrame(const QByteArray &text, QByteArray &buffer);

private:
    void dequeueWritten(qint64 bytes);

    void noteUnread();

    Limits m_limits;
    QWebSocket *const m_socket;
    PageSocket *const m_page;
    const QPointer<ClientQueue> m_queue;
    ClientQueue::Hold m_hold; // while there is much unread
    base::Clock::TimePoint m_lastRead{};
    qint64 m_unread = 0; // when it was last looked at
    bool m_told = false; // that its commands wait
    static constexpr int longestName = 64;
    QString m_lastText;
    quint64 m_framesSent = 0;
    quint64 m_framesDropped = 0;
    qint64 m_written = 0; // bytes written since the queue was last empty
    struct Waiting
    {
        qint64 end; // counted like m_written
        base::Clock::TimePoint fetched;
    };
    QQueue<Waiting> m_waiting; // a queued frame each
    FrameAges m_ages;
};
