// SPDX-License-Identifier: MIT
#include "access/origin.h"

#include <QHostAddress>
#include <QRegularExpression>
#include <QUrl>

#include <algorithm>

namespace accesspolicy {

namespace {

constexpr int longestHost = 253; // RFC 1035, section 2.3.4
constexpr int highestPort = 65535;

int usualPort(const QString &scheme)
{
    if (scheme == QLatin1String("http") || scheme == QLatin1String("ws")) {
        return 80;
    }
    return scheme == QLatin1String("https") || scheme == QLatin1String("wss") ? 443 : 0;
}

/// Lower case of ASCII alone: QString's would make a "k" of the Kelvin sign.
QString lowered(const QString &text)
{
    QString result = text;
    for (QChar &character : result) {
        if (character >= QLatin1Char('A') && character <= QLatin1Char('Z')) {
            character = QChar(character.unicode() + ('a' - 'A'));
        }
    }
    return result;
}

bool isLabelCharacter(QChar character)
{
    const ushort code = character.unicode();
    return (code >= 'a' && code <= 'z') || (code >= '0' && code <= '9') || code == '-'
        || code == '_';
}

bool isLabel(const QStringRef &label)
{
    return !label.isEmpty() && std::all_of(label.begin(), label.end(), isLabelCharacter);
}

/// Whether this is a host in lower case: labels with single dots between, or "[address]".
bool isHost(const QString &host)
{
    if (host.startsWith(QLatin1Char('['))) {
        QHostAddress address;
        return host.endsWith(QLatin1Char(']')) && !host.contains(QLatin1Char('%'))
            && address.setAddress(host.mid(1, host.size() - 2))
            && address.protocol() == QAbstractSocket::IPv6Protocol;
    }
    const auto labels = host.splitRef(QLatin1Char('.'));
    return host.size() <= longestHost && std::all_of(labels.begin(), labels.end(), isLabel);
}

/// "[0:0::1]" and "[::1]" are the same host.
QString canonicalHost(const QString &host)
{
    return host.startsWith(QLatin1Char('[')) ? QLatin1Char('[')
            + QHostAddress(host.mid(1, host.size() - 2)).toString() + QLatin1Char(']')
                                             : host;
}

/// Reads digits alone: no sign, no blank. \return -1 for anything else
int portFrom(const QString &text)
{
    const bool isNumber = !text.isEmpty() && text.size() <= 5
        && std::all_of(text.begin(), text.end(), [](QChar character) {
               return character >= QLatin1Char('0') && character <= QLatin1Char('9');
           });
    const int port = isNumber ? text.toInt() : -1;
    return port >= 1 && port <= highestPort ? port : -1;
}

bool hasScheme(const QString &text)
{
    static const QRegularExpression scheme(QStringLiteral("^[A-Za-z][A-Za-z0-9+.-]*://"));
    return scheme.match(text).hasMatch();
}

/// Reads "scheme://host[:port]" and nothing else.
std::optional<Origin> webOrigin(const QString &text)
{
    const int end = text.indexOf(QLatin1String("://"));
    if (!hasScheme(text)) {
        return {};
    }
    Origin origin;
    origin.kind = Origin::Kind::Web;
    origin.scheme = lowered(text.left(end));
    const auto host = hostAndPortFrom(text.mid(end + 3));
    if (!host) {
        return {};
    }
    origin.host = host->host;
    origin.port = host->port != 0 ? host->port : usualPort(origin.scheme);
    return origin;
}

/// Whether two parsers may disagree about where the host of this address ends.
bool isAmbiguous(const QString &address)
{
    return std::any_of(address.begin(), address.end(), [](QChar character) {
        return character.unicode() <= ' ' || character.unicode() == 0x7f
            || character == QLatin1Char('\\') || character.isSpace()
            || character.category() == QChar::Other_Format
            || character.category() == QChar::Other_Control;
    });
}

} // namespace

QString Origin::text() const
{
    if (kind != Kind::Web) {
        return kind == Kind::File ? QStringLiteral("file") : QStringLiteral("none");
    }
    const QString name = scheme + QLatin1String("://") + host;
    return port == usualPort(scheme) ? name : QStringLiteral("%1:%2").arg(name).arg(port);
}

std::optional<HostAndPort> hostAndPortFrom(const QString &text)
{
    const int bracket = text.lastIndexOf(QLatin1Char(']'));
    const int colon = text.indexOf(QLatin1Char(':'), qMax(0, bracket));
    HostAndPort result;
    result.host = lowered(colon < 0 ? text : text.left(colon));
    if (!isHost(result.host)) {
        return {};
    }
    result.host = canonicalHost(result.host);
    if (colon >= 0) {
        result.port = portFrom(text.mid(colon + 1));
    }
    return result.port < 0 ? std::nullopt : std::make_optional(result);
}

bool HostAndPort::covers(const HostAndPort &header) const
{
    return host == header.host && (port == 0 || port == header.port);
}

std::optional<Origin> originFrom(const QString &header)
{
    if (header == QLatin1String("null") || header == QLatin1String("file://")) {
        return Origin{Origin::Kind::File, {}, {}, 0};
    }
    return webOrigin(header);
}

std::optional<Origin> originOfAddress(const QString &address, const char *usualScheme)
{
    if (isAmbiguous(address)) {
        return {};
    }
    QString text = address;
    if (!hasScheme(text)) {
        if (!usualScheme) {
            return {};
        }
        text = QLatin1String(usualScheme) + QLatin1String("://") + text;
    }
    static const QRegularExpression rest(QStringLiteral("[/?#]"));
    const int host = text.indexOf(QLatin1String("://")) + 3;
    const auto origin = webOrigin(text.left(text.indexOf(rest, host)));
    const bool isWeb = origin
        && (origin->scheme == QLatin1String("http") || origin->scheme == QLatin1String("https"));
    // Whoever opens it has another parser.
    return isWeb
            && QUrl(text).host()
                == QString(origin->host).remove(QLatin1Char('[')).remove(QLatin1Char(']'))
        ? origin
        : std::nullopt;
}

std::optional<OriginPattern> OriginPattern::from(const QString &text, QString *error)
{
    OriginPattern pattern;
    if (text == QLatin1String("*")) {
        pattern.m_isAny = true;
        return pattern;
    }
    if (text == QLatin1String("file") || text == QLatin1String("none")) {
        pattern.m_origin.kind =
            text == QLatin1String("file") ? Origin::Kind::File : Origin::Kind::None;
        return pattern;
    }
    // The "*" passes the parser as a label of its own.
    const QString star = QStringLiteral("://*.");
    const QString standIn = QStringLiteral("://pattern-of-one-label.");
    QString concrete = text;
    const bool hasStar = concrete.contains(star);
    concrete.replace(star, standIn);
    const int host = concrete.indexOf(QLatin1String("://")) + 3;
    const int end = concrete.indexOf(QLatin1Char(':'), host);
    const QString name = concrete.mid(host, end < 0 ? -1 : end - host);
    const QByteArray ace = QUrl::toAce(name);
    if (name != QString::fromLatin1(ace) && !ace.isEmpty()) {
        concrete.replace(host, name.size(), QString::fromLatin1(ace)); // as browsers send it
    }
    const auto origin = webOrigin(concrete);
    if (!origin) {
        *error = QStringLiteral("%1 is no origin: expected scheme://host[:port], *, file or none")
                     .arg(text);
        return {};
    }
    pattern.m_origin = *origin;
    if (hasStar) {
        pattern.m_origin.host.replace(0, pattern.m_origin.host.indexOf(QLatin1Char('.')),
                                      QStringLiteral("*"));
    }
    return pattern;
}

bool OriginPattern::matches(const Origin &origin) const
{
    if (m_isAny) {
        return true;
    }
    if (origin.kind != m_origin.kind) {
        return false;
    }
    if (origin.kind != Origin::Kind::Web) {
        return true;
    }
    if (origin.scheme != m_origin.scheme || origin.port != m_origin.port) {
        return false;
    }
    if (!m_origin.host.startsWith(QLatin1Char('*'))) {
        return origin.host == m_origin.host;
    }
    const int dot = origin.host.indexOf(QLatin1Char('.'));
    return dot > 0 && origin.host.midRef(dot) == m_origin.host.midRef(1);
}

bool matches(const OriginPatterns &patterns, const Origin &origin)
{
    return std::any_of(patterns.begin(), patterns.end(),
                       [&](const OriginPattern &pattern) { return pattern.matches(origin); });
}

} // namespace accesspolicy
