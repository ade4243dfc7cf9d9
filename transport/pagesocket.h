// SPDX-License-Identifier: MIT
#pragma once

#include "base/clock.h"
#include "log/refusallog.h"
#include "transport/framescanner.h"
#include "transport/limits.h"

#include <QSet>
#include <QTcpSocket>
#include <QTimer>

#include <memory>

class PageSocket;
class QWebSocket;
namespace accesspolicy {
class Visitor;
}

/// What the sockets of all pages share.
struct PageSockets
{
    explicit PageSockets(const Limits &theLimits)
        : limits(theLimits)
        , log("transport", theLimits.logLinesPerSecond)
    {
    }

    const Limits limits;
    RefusalLog log;
    qint64 unfinished = 0; ///< received bytes of messages that have not ended
    QSet<PageSocket *> all; ///< those that exist
};

/**
 * The TCP socket below a page's WebSocket. It hands QWebSocket the bytes frame by frame, and only
 * whole frames whose header FrameScanner accepts: what is too long is refused at its header,
 * QWebSocket never waits for the rest of a frame (Qt 5.12 blocks the main thread for it), and
 * between two frames there is room to carry out a command or to stop reading.
 *
 * QWebSocket takes what bytesAvailable() admits to when readyRead() is emitted; that is where the
 * bytes are held back.
 *
 * Main thread only. Before the handshake it belongs to the PageListener, then to its WebSocket.
 */
class PageSocket : public QTcpSocket
{
    Q_OBJECT

public:
    /// Takes an accepted connection over; state() tells whether that worked.
    PageSocket(std::shared_ptr<PageSockets> shared, qintptr descriptor, QObject *parent);
    ~PageSocket() override;

    /// Goes on as the socket of this WebSocket, whose child it becomes, after the handshake.
    void setWebSocket(QWebSocket *socket);
    QWebSocket *webSocket() const { return m_webSocket; }

    /// Has the head of the handshake announced by headArrived() before anybody reads it.
    void awaitHead() { m_awaitsHead = true; }

    /**
     * Remembers who it is that an access policy lets in.
     * \param subprotocol  to be named in the response to the handshake; empty: none
     */
    void admit(std::shared_ptr<accesspolicy::Visitor> visitor, const QByteArray &subprotocol);

    /// Who it is; null if no policy was in force when the page came.
    accesspolicy::Visitor *visitor() const { return m_visitor.get(); }

    /// Answers the handshake with this HTTP status, and ends the connection.
    void refuseHandshake(int status);

    /// Replaces the limit of a message.
    void setLongestMessage(quint64 bytes) { m_scanner.setLongestMessage(bytes); }

    /// Stops handing out frames, and then reading, until it is called with false.
    void setPaused(bool paused);
    bool isPaused() const { return m_paused; }

    /// Whether the other end has closed the connection, which is not noticed otherwise in a pause.
    bool peerHasGone() const;

    /// Remembers that the page has sent a text: it is more than an open connection.
    void noteText() { m_sentText = true; }
    bool hasSentText() const { return m_sentText; }

    /// When the page last sent anything, or connected.
    base::Clock::TimePoint lastHeard() const { return m_lastHeard; }

    /// Received bytes of its message, and of its frame, that has not ended.
    qint64 unfinishedBytes() const { return m_unfinished; }

    /// Closes the connection of a page that breaks a rule: a log line, and the code for the page.
    void refuse(quint16 closeCode, const QString &reason);
    bool isRefused() const { return m_refused; }

    /// Ends the connection at once, with a log line; a close code for a page that reads, or 0.
    void drop(const QString &reason, quint16 closeCode = 0);

    /// Ends what has lasted too long: a handshake, a message, the farewell of a refused page.
    void checkTimes();

    /// Deletes the WebSocket, and so this socket, as soon as no frame of it is being handled.
    void deleteWebSocketLater();

    qint64 bytesAvailable() const override;

    /// "address-port" of the other end, also after it has gone.
    const QString &peer() const { return m_peer; }

    /// Logs something about this page, within the limit of lines.
    void log(const QString &text);

Q_SIGNALS:
    /// The head of the handshake is there, its empty line included; see awaitHead().
    void headArrived(const QByteArray &head);
    /// The page says goodbye. QWebSocket is still to answer it: nothing can be sent after that.
    void goodbyeCame();
    /// QWebSocket has dealt with a frame; commands may be carried out here.
    void frameTaken();
    /// The page has been refused; it gets nothing any more, and will disconnect.
    void refused(int closeCode);

protected:
    qint64 writeData(const char *data, qint64 size) override;

private:
    enum class View { Everything, Nothing, Frame };

    void enterReadyRead();
    void leaveReadyRead();
    void takeLast(SocketError error);
    void takeQueuedReads();
    void checkHandshake();
    void feed();
    bool feedFrame();
    void limitReading();
    void noteUnfinished();
    void refuseIfTooMuchIsUnfinished();
    void discard();
    void writeClose(quint16 code, const QString &reason);

    const std::shared_ptr<PageSockets> m_shared;
    QString m_peer;
    FrameScanner m_scanner;
    QTimer m_feedLater;
    QWebSocket *m_webSocket = nullptr;
    base::Clock::TimePoint m_lastHeard;
    base::Clock::TimePoint m_since; // of the connection, then of the refusal
    View m_view = View::Everything;
    qint64 m_frameStart = 0; // of a frame being handed out: bytes in the buffer before it was read
    qint64 m_frameSize = 0;
    qint64 m_needed = 0; // bytes in the buffer before there is anything to hand out
    qint64 m_unfinished = 0; // this page's part of PageSockets::unfinished
    std::shared_ptr<accesspolicy::Visitor> m_visitor;
    QByteArray m_subprotocol; // not yet sent
    bool m_awaitsHead = false;
    bool m_sentText = false;
    bool m_paused = false;
    bool m_feeding = false;
    bool m_refused = false;
    bool m_deleteWanted = false;
};
