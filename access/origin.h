// SPDX-License-Identifier: MIT
/// \file Origins of pages and addresses of servers, as texts and as patterns. Pure; any thread.
#pragma once

#include <QString>

#include <optional>
#include <vector>

namespace accesspolicy {

/// Scheme, host and port (RFC 6454): of a page, or of a server that something is sent to.
struct Origin
{
    enum class Kind {
        Web, ///< scheme, host and port
        File, ///< "null", or "file://": of a page from a file, or without an origin of its own
        None, ///< no Origin header: of a program
    };

    Kind kind = Kind::None;
    QString scheme; ///< in lower case
    QString host; ///< in lower case, as in an address: "[::1]" with its brackets
    int port = 0; ///< the scheme's usual one if none is given; 0: the scheme has no usual one

    /// "https://counter.bank.example", "file" or "none".
    QString text() const;
};

/**
 * Reads the value of an Origin header, strictly as browsers write it, but in either case: nothing
 * behind the port, no user name, no character beyond ASCII, one origin.
 * \return nullopt for anything else
 */
std::optional<Origin> originFrom(const QString &header);

/**
 * Reads the origin of an http or https address, of which everything behind the host and the port is
 * ignored. Refuses what two parsers could read differently: user names, "\", "%" in a host, blanks,
 * control characters.
 * \param usualScheme  of an address without a scheme; null: it must have one
 */
std::optional<Origin> originOfAddress(const QString &address, const char *usualScheme);

/// A pattern of origins: "https://*.gov.example:8443", "file", "none" or "*" for all.
class OriginPattern
{
public:
    /// \return nullopt for a text that is no pattern, with the reason
    static std::optional<OriginPattern> from(const QString &text, QString *error);

    /// As it is written, but for capitals and the scheme's usual port.
    QString text() const { return m_isAny ? QStringLiteral("*") : m_origin.text(); }

    /// Scheme and port count; "*" is one whole label of the host.
    bool matches(const Origin &origin) const;

private:
    bool m_isAny = false;
    Origin m_origin; // its host may begin with "*."
};

using OriginPatterns = std::vector<OriginPattern>;

bool matches(const OriginPatterns &patterns, const Origin &origin);

/// A host and a port as in a Host header: "localhost:1818".
struct HostAndPort
{
    QString host; ///< in lower case, "[::1]" with its brackets
    int port = 0; ///< 0: none given

    /// Whether a header names this host; its port counts only if one is given here.
    bool covers(const HostAndPort &header) const;
};

/// Reads a host with an optional port, strictly; nullopt for anything else.
std::optional<HostAndPort> hostAndPortFrom(const QString &text);

} // namespace accesspolicy
