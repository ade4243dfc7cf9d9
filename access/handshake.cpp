// SPDX-License-Identifier: MIT
#include "access/handshake.h"

#include <QCryptographicHash>
#include <QUrlQuery>

#include <algorithm>
#include <utility>

namespace accesspolicy {

namespace {

bool hasControlCharacter(const QByteArray &line)
{
    return std::any_of(line.begin(), line.end(), [](char byte) {
        return (uchar(byte) < ' ' && byte != '\t') || byte == 0x7f;
    });
}

QString tokenOfTarget(const QByteArray &target)
{
    const int question = target.indexOf('?');
    return question < 0 ? QString()
                        : QUrlQuery(QString::fromLatin1(target.mid(question + 1)))
                              .queryItemValue(QStringLiteral("token"), QUrl::FullyDecoded);
}

void readProtocols(const QByteArray &value, Handshake *handshake)
{
    const auto protocols = value.split(',');
    for (const QByteArray &each : protocols) {
        const QByteArray protocol = each.trimmed();
        if (protocol.startsWith(tokenProtocol)) {
            handshake->tokens << QString::fromLatin1(protocol.mid(int(sizeof tokenProtocol) - 1));
            if (handshake->subprotocol.isEmpty()) {
                handshake->subprotocol = protocol;
            }
        }
    }
}

/// Reads the request line. \return the reason to refuse it, or empty
QString readRequest(const QByteArray &line, Handshake *handshake)
{
    const auto words = line.split(' ');
    if (words.size() != 3 || words[0] != "GET" || !words[2].startsWith("HTTP/1.")) {
        return QStringLiteral("the request is no handshake");
    }
    if (!words[1].startsWith('/') || words[1].startsWith("//")) {
        return QStringLiteral("the requested address is no path");
    }
    const QString token = tokenOfTarget(words[1]);
    if (!token.isEmpty()) {
        handshake->tokens << token;
    }
    return {};
}

QString readHeader(const QByteArray &line, bool *hasHost, Handshake *handshake)
{
    const int colon = line.indexOf(':');
    if (colon <= 0 || line[0] == ' ' || line[0] == '\t' || line[colon - 1] == ' '
        || line[colon - 1] == '\t') {
        return QStringLiteral("a header is malformed");
    }
    const QByteArray name = line.left(colon).toLower();
    const QByteArray value = line.mid(colon + 1).trimmed();
    if (name == "host") {
        if (std::exchange(*hasHost, true)) {
            return QStringLiteral("there are several Host headers");
        }
        handshake->host = QString::fromLatin1(value);
    } else if (name == "origin" || name == "sec-websocket-origin") {
        if (handshake->origin) {
            return QStringLiteral("there are several Origin headers");
        }
        handshake->origin = QString::fromLatin1(value);
    } else if (name == "sec-websocket-protocol") {
        readProtocols(value, handshake);
    }
    return {};
}

} // namespace

Handshake handshakeFrom(const QByteArray &head)
{
    Handshake handshake;
    bool hasHost = false;
    int start = 0;
    for (int end = head.indexOf("\r\n"); end > start && handshake.problem.isEmpty();
         end = head.indexOf("\r\n", start)) {
        const QByteArray line = head.mid(start, end - start);
        if (hasControlCharacter(line)) {
            handshake.problem = QStringLiteral("a line of the handshake has control characters");
        } else if (start == 0) {
            handshake.problem = readRequest(line, &handshake);
        } else {
            handshake.problem = readHeader(line, &hasHost, &handshake);
        }
        start = end + 2;
    }
    if (handshake.problem.isEmpty() && !hasHost) {
        handshake.problem = QStringLiteral("there is no Host header");
    }
    return handshake;
}

bool equalSecrets(const QByteArray &one, const QByteArray &other)
{
    // Hashes have one length, so that the loop says nothing about the lengths either.
    const QByteArray first = QCryptographicHash::hash(one, QCryptographicHash::Sha256);
    const QByteArray second = QCryptographicHash::hash(other, QCryptographicHash::Sha256);
    volatile uchar difference = 0;
    for (int i = 0; i < first.size(); ++i) {
        difference = uchar(difference | (first[i] ^ second[i]));
    }
    return difference == 0;
}

} // namespace accesspolicy
