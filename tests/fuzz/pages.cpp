// SPDX-License-Identifier: MIT
//
// Bytes that come to the server's port. The first byte says how they come, the second how the
// device answers, the third in pieces of what size.
#include "tests/pages.h"

#include "dispatch/messagerun.h"
#include "tests/fuzz/device.h"
#include "tests/fuzz/fuzztarget.h"
#include "transport/framescanner.h"
#include "transport/pagesocket.h"
#include "transport/websocketservermanager.h"

#include <QCoreApplication>
#include <sys/socket.h>

namespace {

enum Way {
    WithHandshake = 1, ///< before the bytes
    Waits = 2, ///< for the handshake's answer
    SaysGoodbye = 4, ///< closes the connection in order
};

constexpr int mostPieces = 32;

const QByteArray handshake =
    "GET / HTTP/1.1\r\nHost: localhost\r\nUpgrade: websocket\r\n"
    "Connection: Upgrade\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"
    "Sec-WebSocket-Version: 13\r\n\r\n";

WebSocketServerManager &server()
{
    static auto &manager =
        *new WebSocketServerManager(QStringLiteral("fuzz"), QWebSocketServer::NonSecureMode);
    return manager;
}

/// A page that is always there.
Page &neighbor()
{
    static auto &page = *new Page(server().port());
    return page;
}

int connections()
{
    return server().findChildren<PageSocket *>().size();
}

/// What a header says must not depend on how much has come after it.
void checkScanner(const QByteArray &bytes)
{
    FrameScanner scanner(Limits().message);
    const auto *at = reinterpret_cast<const uchar *>(bytes.constData());
    const auto *end = at + bytes.size();
    for (int i = 0; i < mostPieces && at < end; ++i) {
        const auto frame = scanner.look(at, end - at);
        for (int count = 0; count <= FrameScanner::longestHeader && count < end - at; ++count) {
            const auto early = scanner.look(at, count);
            fuzz::require(!early.complete
                              || (early.refusal == frame.refusal && early.size == frame.size),
                          "a header means the same, whenever it has come");
        }
        if (!frame.complete || frame.refusal != 0 || frame.size > quint64(end - at)) {
            return;
        }
        fuzz::require(frame.size >= 6 && frame.message <= Limits().message, "the limit holds");
        scanner.advance(frame);
        at += frame.size;
    }
}

void send(QTcpSocket &socket, const QByteArray &bytes, int piece)
{
    piece = std::max(piece, bytes.size() / mostPieces + 1);
    for (int at = 0; at < bytes.size(); at += piece) {
        socket.write(bytes.mid(at, piece));
        socket.flush();
        QCoreApplication::processEvents();
    }
}

/// Resets the connection: so many closed ones would use up the machine's ports.
void reset(QTcpSocket &socket)
{
    const linger atOnce{1, 0};
    setsockopt(int(socket.socketDescriptor()), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    socket.abort();
}

void checkNeighbor()
{
    neighbor().send(QStringLiteral("getVersion()"));
    const QString answer =
        MessageRun::framed(QStringLiteral("getVersion"), QStringLiteral("V1.0.2"));
    QString text;
    do {
        text = neighbor().next();
        fuzz::require(!text.isNull(), "another page gets its answer");
    } while (text != answer);
}

} // namespace

void fuzz::prepare()
{
    useOwnClock();
    Limits limits; // none of time: the clock runs ahead of the pages
    limits.handshake = limits.stalledMessage = limits.unreadStall = limits.unreadOfAllStall =
        std::chrono::hours(100000);
    server().setLimits(limits);
    server().websocke_server_start(QHostAddress::LocalHost, 0);
    require(neighbor().isConnected(), "the server is there");
}

void fuzz::run(const QByteArray &input)
{
    Fields fields(input);
    const int way = fields.byte();
    const int device = fields.byte();
    const int piece = 1 + fields.byte();
    const QByteArray bytes = fields.rest();
    checkScanner(bytes);
    orderDevice(device, "a text");

    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, server().port());
    require(socket.waitForConnected(), "the server accepts");
    socket.setSocketOption(QAbstractSocket::LowDelayOption, 1); // or each piece waits for the last
    if ((way & WithHandshake) != 0) {
        socket.write(handshake);
    }
    if ((way & (WithHandshake | Waits)) == (WithHandshake | Waits)) {
        require(waitFor([&socket] { return socket.bytesAvailable() > 0; }), "a page gets in");
    }
    send(socket, bytes, piece);
    checkNeighbor();
    callListeners(device, "a text");
    if ((way & SaysGoodbye) != 0) {
        socket.disconnectFromHost();
    }
    reset(socket);
    require(waitFor([] { return connections() == 1; }), "nothing stays of a closed connection");
    closeWindows();
}

QList<QByteArray> fuzz::seeds()
{
    const auto text = [](const QByteArray &payload, char first = '\x81') {
        const QByteArray size = payload.size() < 126
            ? QByteArray(1, char(0x80 | payload.size()))
            : QByteArray("\xFE") + char(payload.size() >> 8) + char(payload.size() & 0xFF);
        return first + size + QByteArray(4, '\0') + payload;
    };
    const QByteArray calm = QByteArray(1, WithHandshake | Waits) + QByteArray("\1\xFF");
    const QByteArray hasty = QByteArray(1, WithHandshake | SaysGoodbye) + QByteArray("\4\3");
    return {
        QByteArray(3, '\0') + handshake + text("getVersion()"),
        calm + text("bStartPlay(90)") + text("bSaveJPG(/tmp,a)") + text("bStopPlay()"),
        calm + text(QByteArray(300, 'a')) + text("#a text") + text("\xE4\xB8\xAD"),
        hasty + text("sUpLoadImageEx5(a,b,1,c,0,d,e,1,1)") + text("getVersion()"),
        hasty + text("bSave", '\x01') + text("ping", '\x89') + text("JPG(a,b)", '\x80'),
        calm + text("binary", '\x82') + text("pong", '\x8A') + text("\x03\xE8", '\x88'),
        calm + QByteArray("\x81\xFF\0\0\0\0\0\1\0\0\0\0\0\0", 14),
    };
}
