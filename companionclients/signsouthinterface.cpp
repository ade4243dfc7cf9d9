// SPDX-License-Identifier: MIT
#include "companionclients/signsouthinterface.h"

#include "base/clock.h"
#include "log/trace.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

namespace {

constexpr int readTimeoutMs = 100; // each wait for more of a reply
constexpr int maxDroppedReplyBytes = 100;
constexpr int maxReplyBytes = 256 * 1024 * 1024; // bytes; no page could receive more

/// Prints a progress marker on standard output, for a technician who runs the server by hand.
void printMarker(const char *marker)
{
    std::puts(marker);
}

QByteArray requestText(const QString &pdfpath, const QString &xmlpath, const QString &location,
                       const QString &retain, int timeout)
{
    return QJsonDocument(QJsonObject{
                             {QStringLiteral("pdfpath"), pdfpath},
                             {QStringLiteral("xmlpath"), xmlpath},
                             {QStringLiteral("location"), location},
                             {QStringLiteral("retain"), retain},
                             {QStringLiteral("timeout"), timeout},
                         })
        .toJson();
}

} // namespace

SignSouthInterface *SignSouthInterface::instance()
{
    static SignSouthInterface client;
    return &client;
}

SignSouthInterface::SignSouthInterface()
    : CompanionClient(QStringLiteral("SOUTHINTERFACE_ELECSIGNSERVER"),
                      QStringLiteral("run-elecsign.sh"))
{
    connect(&m_socket, &QLocalSocket::stateChanged, this, &SignSouthInterface::slot_stateChanged);
    connect(&m_socket, &QLocalSocket::readyRead, this, &SignSouthInterface::slot_readyRead);
}

bool SignSouthInterface::start()
{
    closeConnectionForRestart();
    printMarker("start1");
    TRACE;
    launch();
    if (!connectInThreeAttempts()) {
        printMarker("start36");
        TRACE;
    }
    if (isConnected()) {
        printMarker("start3");
        return true;
    }
    printMarker("start2");
    TRACE;
    return false;
}

void SignSouthInterface::DoGWQ_StartSign(const QString &pdfpath, const QString &xmlpath,
                                         const QString &location, const QString &retain,
                                         int timeout)
{
    send(1, requestText(pdfpath, xmlpath, location, retain, timeout));
}

void SignSouthInterface::DoGWQ_StartSignEx(const QString &pdfpath, const QString &xmlpath,
                                           const QString &location, const QString &retain,
                                           int timeout)
{
    send(2, requestText(pdfpath, xmlpath, location, retain, timeout));
}

void SignSouthInterface::send(int type, const QByteArray &json)
{
    if (!isConnected()) {
        TRACE << "not connected";
        printMarker("sign1");
        return;
    }
    if (!writeNumber(type)) {
        printMarker("sign2");
        return;
    }
    writeNumber(json.size());
    m_socket.write(json);
    m_socket.flush();
    m_socket.waitForBytesWritten(socketTimeoutMs);
    std::printf("sign3:%s\n", json.constData());
}

void SignSouthInterface::slot_readyRead()
{
    printMarker("SignSouthInterface::slot_readyRead1");
    std::fflush(stdout);
    qint32 length = 0;
    m_socket.read(reinterpret_cast<char *>(&length), sizeof length);
    QByteArray payload;
    if (!readPayload(length, &payload)) {
        TRACE << "the service disconnected after" << payload.size() << "of" << length
              << "bytes of a reply";
        return;
    }
    std::printf("ddd=%d %d\n", length, length);
    printMarker("SignSouthInterface::slot_readyRead2");
    std::fflush(stdout);
    if (payload.size() > maxDroppedReplyBytes) {
        Q_EMIT sig_msg(payload);
    }
}

/**
 * Only the exact length ends a reply: after too many bytes, as after too few, this waits until the
 * service disconnects. Bytes beyond the length are not kept, to bound the memory.
 */
bool SignSouthInterface::readPayload(int length, QByteArray *payload)
{
    *payload = m_socket.readAll();
    const auto start = base::Clock::shared().now();
    while (payload->size() != length) {
        if (replyLimit().count() > 0 && base::Clock::shared().now() - start > replyLimit()) {
            qWarning("companion: the signature service has not ended a reply within %d s",
                     int(replyLimit().count()));
            closeConnection();
            return false;
        }
        if (length < 0 || !isConnected()) {
            return false;
        }
        m_socket.waitForReadyRead(readTimeoutMs);
        const QByteArray more = m_socket.readAll();
        if (payload->size() < qMin(length, maxReplyBytes)) {
            *payload += more;
        }
    }
    return true;
}

void SignSouthInterface::slot_stateChanged(QLocalSocket::LocalSocketState state)
{
    std::printf("QLocalSocket::LocalSocketState:%d\n", int(state));
    TRACE << state;
}
