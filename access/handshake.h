// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>

namespace accesspolicy {

/// What the head of a WebSocket handshake (RFC 6455, section 4.1) says that a policy asks about.
struct Handshake
{
    std::optional<QString> origin; ///< value of the Origin header; nullopt: there is none
    QString host; ///< value of the Host header
    QStringList tokens; ///< of the address's query, and those offered as subprotocols
    QByteArray subprotocol; ///< the one that a token came in, for the response; empty: none
    QString problem; ///< why the head is refused whatever it says; empty: it is a good one
};

/// Subprotocols with a token begin so: "token.6f1c...".
constexpr char tokenProtocol[] = "token.";

/**
 * Reads a head, its empty line included. Whatever two parsers may read differently is a problem:
 * bare line ends, folded lines, a header twice, an address that isn't a path.
 */
Handshake handshakeFrom(const QByteArray &head);

/// Whether two secrets are the same, in a time that says nothing about where they differ.
bool equalSecrets(const QByteArray &one, const QByteArray &other);

} // namespace accesspolicy
