// SPDX-License-Identifier: MIT
#include "transport/pagesocket.h"

#include "access/visitor.h"

#include <QCoreApplication>
#include <QWebSocket>
#include <QtEndian>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace {

base::Clock::TimePoint now()
{
    return base::Clock::shared().now();
}

/// Payload bytes of a close frame after its code: control frames have 125 at most.
constexpr int longestCloseReason = 123;

} // namespace

PageSocket::PageSocket(std::shared_ptr<PageSockets> shared, qintptr descriptor, QObject *parent)
    : QTcpSocket(parent)
    , m_shared(std::move(shared))
    , m_scanner(m_shared->limits.message)
    , m_lastHeard(now())
    , m_since(m_lastHeard)
{
    m_shared->all.insert(this);
    m_feedLater.setSingleShot(true);
    m_feedLater.setInterval(0); // a turn of the event loop; a posted event would come before it
    connect(&m_feedLater, &QTimer::timeout, this, &PageSocket::feed);
    // The first of all who listen to it.
    connect(this, &QTcpSocket::readyRead, this, &PageSocket::enterReadyRead);
    connect(this, QOverload<SocketError>::of(&QTcpSocket::error), this, &PageSocket::takeLast);
    if (setSocketDescriptor(descriptor)) {
        m_peer = QStringLiteral("%1-%2").arg(peerAddress().toString()).arg(peerPort());
    }
}

PageSocket::~PageSocket()
{
    abort(); // here, where its signals still find a whole object
    m_shared->unfinished -= m_unfinished;
    // Not by the signal destroyed(): QWebSocket severs all connections when it goes.
    m_shared->all.remove(this);
}

void PageSocket::setWebSocket(QWebSocket *socket)
{
    m_webSocket = socket;
    setParent(socket);
    // After QWebSocket, which has connected itself already.
    connect(this, &QTcpSocket::readyRead, this, &PageSocket::leaveReadyRead);
    m_feedLater.start(); // what came behind the handshake
}

qint64 PageSocket::bytesAvailable() const
{
    const qint64 buffered = QTcpSocket::bytesAvailable();
    switch (m_view) {
    case View::Nothing:
        return 0;
    case View::Frame:
        return qMax(qint64(0), m_frameSize - (m_frameStart - buffered));
    case View::Everything:
        break;
    }
    return buffered;
}

void PageSocket::enterReadyRead()
{
    if (m_view == View::Frame) {
        return;
    }
    m_lastHeard = now();
    if (m_refused) {
        discard();
    } else if (m_webSocket) {
        m_view = View::Nothing;
    } else {
        checkHandshake();
    }
}

void PageSocket::leaveReadyRead()
{
    if (m_view == View::Frame) {
        return;
    }
    takeQueuedReads();
    m_view = View::Everything;
    feed();
}

/// The page has gone. What it sent before is handed out, but for what would take long.
void PageSocket::takeLast(SocketError error)
{
    if (error != RemoteHostClosedError || m_feeding || m_refused || m_paused || !m_webSocket) {
        return;
    }
    m_feeding = true;
    m_view = View::Everything;
    const auto end = now() + m_shared->limits.farewell;
    while (!m_refused && state() == ConnectedState && now() <= end && feedFrame()) {
        Q_EMIT frameTaken();
    }
    m_feeding = false;
}

/// Lets QWebSocket read now: its connection to readyRead() is a queued one in some versions of Qt.
void PageSocket::takeQueuedReads()
{
    QCoreApplication::sendPostedEvents(m_webSocket, QEvent::MetaCall);
}

void PageSocket::checkHandshake()
{
    const qint64 most = m_shared->limits.handshakeBytes;
    if (QTcpSocket::bytesAvailable() > most && !peek(most).contains("\r\n\r\n")) {
        drop(QStringLiteral("its handshake is longer than %1 bytes").arg(most));
    } else if (m_awaitsHead) {
        const QByteArray start = peek(most);
        const int end = start.indexOf("\r\n\r\n");
        if (end >= 0) {
            m_awaitsHead = false;
            Q_EMIT headArrived(start.left(end + 4));
        }
    }
}

void PageSocket::admit(std::shared_ptr<accesspolicy::Visitor> visitor,
                       const QByteArray &subprotocol)
{
    m_visitor = std::move(visitor);
    m_subprotocol = subprotocol;
}

void PageSocket::refuseHandshake(int status)
{
    discard();
    const bool isFull = status == 503;
    write(isFull ? "HTTP/1.1 503 Service Unavailable\r\n" : "HTTP/1.1 403 Forbidden\r\n");
    write("Content-Length: 0\r\nConnection: close\r\n\r\n");
    disconnectFromHost();
}

/// Names the subprotocol behind the status line of the response, which QWebSocketServer can't.
qint64 PageSocket::writeData(const char *data, qint64 size)
{
    if (m_subprotocol.isEmpty()) {
        return QTcpSocket::writeData(data, size);
    }
    static const char accepted[] = "HTTP/1.1 101";
    const void *lineEnd = memchr(data, '\n', std::size_t(size));
    if (!lineEnd
        || std::strncmp(data, accepted, std::min(std::size_t(size), std::strlen(accepted))) != 0) {
        return QTcpSocket::writeData(data, size);
    }
    const qint64 line = static_cast<const char *>(lineEnd) + 1 - data;
    const QByteArray header =
        "Sec-WebSocket-Protocol: " + std::exchange(m_subprotocol, {}) + "\r\n";
    const qint64 written = QTcpSocket::writeData(data, line);
    if (written < line
        || QTcpSocket::writeData(header.constData(), header.size()) < header.size()) {
        return written;
    }
    return line + QTcpSocket::writeData(data + line, size - line);
}

void PageSocket::feed()
{
    if (m_feeding || m_refused || !m_webSocket) {
        return;
    }
    m_feeding = true;
    // Qt has stopped reading then, and goes on only when it is told so after readyRead().
    bool isMore = readBufferSize() > 0 && QTcpSocket::bytesAvailable() >= readBufferSize()
        && m_view == View::Everything && sender() != &m_feedLater;
    const auto end = now() + m_shared->limits.turn;
    while (!m_paused && !m_refused && state() == ConnectedState && feedFrame()) {
        Q_EMIT frameTaken();
        m_lastHeard = now();
        if (m_lastHeard > end) {
            isMore = true;
            break;
        }
    }
    if (isMore) {
        m_feedLater.start();
    }
    limitReading();
    m_feeding = false;
    if (m_deleteWanted) {
        m_webSocket->deleteLater();
    }
}

/**
 * Qt reads whatever comes unless it has a limit: a page could send faster than its frames are dealt
 * with. Beyond the limit the kernel lets the page wait.
 */
void PageSocket::limitReading()
{
    if (m_refused || state() != ConnectedState) {
        return;
    }
    // More than is there: Qt switches the notifier off when it has filled the buffer, not when it
    // finds it full.
    const qint64 wanted = m_paused ? 0 : m_needed;
    const qint64 size =
        qMax(QTcpSocket::bytesAvailable() + 1, qMax(m_shared->limits.readAhead, wanted));
    setReadBufferSize(size == readBufferSize() ? size + 1 : size); // reads on when it changes
}

/// Hands the next frame to QWebSocket. \return false if there is none to hand out
bool PageSocket::feedFrame()
{
    const qint64 buffered = QTcpSocket::bytesAvailable();
    std::array<char, FrameScanner::longestHeader> start;
    // Not more than there is: QIODevice would ask the kernel.
    const qint64 count = peek(start.data(), qMin(buffered, qint64(start.size())));
    const auto frame = m_scanner.look(reinterpret_cast<const uchar *>(start.data()), count);
    if (frame.refusal != 0) {
        refuse(frame.refusal, QString::fromLatin1(frame.reason));
        return false;
    }
    if (!frame.complete || quint64(buffered) < frame.size) {
        m_needed = frame.complete ? qint64(frame.size) : FrameScanner::longestHeader;
        noteUnfinished();
        refuseIfTooMuchIsUnfinished();
        return false;
    }

    m_needed = 0;
    if (frame.closes) {
        Q_EMIT goodbyeCame();
        if (m_refused || state() != ConnectedState) {
            return false;
        }
    }
    m_scanner.advance(frame);
    m_frameStart = buffered;
    m_frameSize = qint64(frame.size);
    m_view = View::Frame;
    Q_EMIT readyRead();
    takeQueuedReads();
    m_view = View::Everything;
    if (state() != ConnectedState) { // QWebSocket did not like it, or it was the page's farewell
        return false;
    }
    if (buffered - QTcpSocket::bytesAvailable() != m_frameSize) {
        drop(
            QStringLiteral("a frame was not taken")); // never seen; it would be handed out for ever
        return false;
    }
    noteUnfinished();
    return true;
}

/// Keeps the account of unfinished messages.
void PageSocket::noteUnfinished()
{
    const qint64 unfinished = QTcpSocket::bytesAvailable() + qint64(m_scanner.unfinished());
    m_shared->unfinished += unfinished - std::exchange(m_unfinished, unfinished);
}

void PageSocket::refuseIfTooMuchIsUnfinished()
{
    const Limits &limits = m_shared->limits;
    if (m_shared->unfinished > limits.unfinished && m_unfinished > limits.unfinishedAlways) {
        refuse(QWebSocketProtocol::CloseCodeTooMuchData,
               QStringLiteral("unfinished messages of all pages have %1 MiB")
                   .arg(m_shared->unfinished / Limits::MiB));
    }
}

void PageSocket::setPaused(bool paused)
{
    if (m_paused == paused || !m_webSocket) {
        return;
    }
    m_paused = paused;
    if (paused) {
        limitReading();
    } else {
        m_feedLater.start();
    }
}

bool PageSocket::peerHasGone() const
{
    pollfd one{int(socketDescriptor()), POLLRDHUP, 0};
    return state() != ConnectedState
        || (poll(&one, 1, 0) > 0 && (one.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0);
}

void PageSocket::refuse(quint16 closeCode, const QString &reason)
{
    if (m_refused) {
        return;
    }
    log(QStringLiteral("is refused (%1): %2").arg(closeCode).arg(reason));
    m_refused = true;
    m_since = now();
    setReadBufferSize(0);
    discard();
    writeClose(closeCode, reason);
    Q_EMIT refused(closeCode);
    if (bytesToWrite() > 0) {
        m_webSocket->abort(); // it does not read
    } else {
        // What still comes is read for a moment, and thrown away: closing a socket with unread data
        // resets the connection, and the page may never see the reason.
        shutdown(int(socketDescriptor()), SHUT_WR);
    }
}

void PageSocket::discard()
{
    skip(QTcpSocket::bytesAvailable());
    m_shared->unfinished -= std::exchange(m_unfinished, 0);
}

void PageSocket::writeClose(quint16 code, const QString &reason)
{
    const QByteArray text = reason.toUtf8().left(longestCloseReason);
    QByteArray frame("\x88", 1); // FIN, opcode 8
    frame.append(char(2 + text.size()));
    frame.append(char(code >> 8)).append(char(code & 0xFF));
    write(frame + text);
    flush();
}

void PageSocket::log(const QString &text)
{
    m_shared->log.write(QStringLiteral("page %1 %2").arg(m_peer, text));
}

void PageSocket::drop(const QString &reason, quint16 closeCode)
{
    log(QStringLiteral("is disconnected: %1").arg(reason));
    if (!m_webSocket) {
        abort();
        return;
    }
    if (closeCode != 0 && bytesToWrite() == 0) {
        writeClose(closeCode, reason);
    }
    m_webSocket->abort();
}

void PageSocket::checkTimes()
{
    const Limits &limits = m_shared->limits;
    const auto time = now();
    if (m_refused) {
        if (time - m_since > limits.linger) {
            m_webSocket->abort();
        }
    } else if (!m_webSocket) {
        if (time - m_since > limits.handshake) {
            drop(QStringLiteral("no handshake within %1 s")
                     .arg(std::chrono::duration<double>(limits.handshake).count()));
        }
    } else if (state() == ClosingState) {
        if (time - m_lastHeard > limits.unreadStall) {
            m_webSocket->abort(); // what it has not read keeps the connection open
        }
    } else if (m_paused) {
        if (peerHasGone()) {
            m_webSocket->abort();
        }
    } else if (m_unfinished > 0 && time - m_lastHeard > limits.stalledMessage) {
        refuse(QWebSocketProtocol::CloseCodeGoingAway,
               QStringLiteral("its message has not gone on for %1 s")
                   .arg(std::chrono::duration<double>(limits.stalledMessage).count()));
    }
}

void PageSocket::deleteWebSocketLater()
{
    m_deleteWanted = true;
    if (!m_feeding) {
        m_webSocket->deleteLater();
    }
}
