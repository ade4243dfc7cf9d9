// SPDX-License-Identifier: MIT
#include "access/doorkeeper.h"

#include "access/argumentrules.h"
#include "access/realpath.h"

#include <QFile>

#include <algorithm>
#include <utility>

namespace accesspolicy {

namespace {

constexpr int full = 503;
constexpr int mostBytesOfOne =
    4; // of a character in UTF-8, so that most texts needn't be converted

Refusal refusal(const QString &reason, const char *key, int status = 403)
{
    return {reason, QString::fromLatin1(key), status};
}

/// The address without what maps IPv4 into IPv6, as the dual-stack socket has it.
QHostAddress plain(const QHostAddress &address)
{
    bool isMapped = false;
    const quint32 number = address.toIPv4Address(&isMapped);
    return isMapped ? QHostAddress(number) : address;
}

} // namespace

Doorkeeper::Doorkeeper(std::shared_ptr<const Policy> policy, const QString &ownPages)
    : m_policy(std::move(policy))
    , m_ownPages(realPath(QFile::encodeName(ownPages)).path)
{
}

bool Doorkeeper::listensOn(const QHostAddress &address) const
{
    const QHostAddress local = plain(address);
    return m_policy->listensEverywhere || (m_policy->listensOnLoopback && local.isLoopback())
        || m_policy->listenAddresses.contains(local);
}

std::optional<Refusal> Doorkeeper::byToken(const Handshake &handshake) const
{
    if (!m_policy->isTokenRequired) {
        return {};
    }
    bool isRight = false;
    for (const QString &token : handshake.tokens) {
        isRight |= equalSecrets(token.toUtf8(), m_policy->token);
    }
    return isRight ? std::nullopt
                   : std::make_optional(refusal(handshake.tokens.isEmpty()
                                                    ? QStringLiteral("there is no token")
                                                    : QStringLiteral("the token is wrong"),
                                                "token.required"));
}

std::optional<Refusal> Doorkeeper::atOrigin(const Origin &origin) const
{
    return matches(m_policy->origins, origin)
        ? std::nullopt
        : std::make_optional(
            refusal(QStringLiteral("the origin is not in origin.allow"), "origin.allow"));
}

std::optional<Refusal> Doorkeeper::atHandshake(const Arrival &arrival, Origin *origin) const
{
    const Handshake &handshake = arrival.handshake;
    if (!handshake.problem.isEmpty()) {
        return refusal(handshake.problem, "");
    }
    if (handshake.origin) {
        const auto parsed = originFrom(*handshake.origin);
        if (!parsed) {
            return refusal(QStringLiteral("the Origin header is malformed"), "origin.allow");
        }
        *origin = *parsed;
    }
    if (!listensOn(arrival.local)) {
        return refusal(QStringLiteral("the address %1 is not in listen.addresses")
                           .arg(plain(arrival.local).toString()),
                       "listen.addresses");
    }
    const auto host = hostAndPortFrom(handshake.host);
    const auto covers = [&](const HostAndPort &allowed) { return host && allowed.covers(*host); };
    if (!std::any_of(m_policy->hosts.begin(), m_policy->hosts.end(), covers)) {
        return refusal(QStringLiteral("the Host header is not in host.allow"), "host.allow");
    }
    if (auto refused = atOrigin(*origin)) {
        return refused;
    }
    if (auto refused = byToken(handshake)) {
        return refused;
    }
    if (arrival.counts.all >= m_policy->clients) {
        return refusal(QStringLiteral("there are %1 pages already").arg(arrival.counts.all),
                       "limits.clients", full);
    }
    const int ofOrigin = arrival.counts.ofOrigin.value(origin->text());
    if (ofOrigin >= m_policy->clientsPerOrigin) {
        return refusal(QStringLiteral("there are %1 pages of this origin already").arg(ofOrigin),
                       "limits.clients_per_origin", full);
    }
    return {};
}

const Grant *Doorkeeper::grantFor(const Origin &origin) const
{
    for (const Grant &grant : m_policy->grants) {
        if (matches(grant.origins, origin)) {
            return &grant;
        }
    }
    return nullptr;
}

std::optional<Refusal> Doorkeeper::byGrant(const Visitor &visitor, const QString &message,
                                           const commands::Facts *facts) const
{
    const Grant *grant = grantFor(visitor.origin());
    if (!grant) {
        return refusal(QStringLiteral("no grant is for this origin"), "");
    }
    Grant::Ruling ruling = Grant::Ruling::NotAllowed;
    if (message.startsWith(QLatin1Char('#'))) {
        ruling = grant->relay;
    } else if (message.startsWith(QLatin1Char('@'))) {
        ruling = grant->pageData;
    } else if (facts) {
        ruling = grant->commands[std::size_t(facts->index)];
    }
    switch (ruling) {
    case Grant::Ruling::Allowed:
        break;
    case Grant::Ruling::Denied:
        return Refusal{QStringLiteral("denied by ") + grant->name,
                       grant->name + QStringLiteral(".deny"), 403};
    case Grant::Ruling::NotAllowed:
        return Refusal{QStringLiteral("not allowed by ") + grant->name,
                       grant->name + QStringLiteral(".allow"), 403};
    }
    return {};
}

Doorkeeper::Decision Doorkeeper::atText(Visitor &visitor, const QString &message) const
{
    Decision decision;
    decision.message = message;
    const bool isRelay = message.startsWith(QLatin1Char('#'));
    const bool isPageData = message.startsWith(QLatin1Char('@'));
    if (isRelay || isPageData) {
        decision.what = message.left(1);
    } else {
        decision.facts = commands::factsOf(commands::Text(message).name);
        decision.what =
            decision.facts ? QString(decision.facts->name) : QStringLiteral("an unknown command");
    }
    decision.refusal = byGrant(visitor, message, decision.facts);
    if (!visitor.rate().take(m_policy->commandsPerSecond) && !decision.refusal) {
        decision.refusal = refusal(QStringLiteral("more than limits.commands_per_second"),
                                   "limits.commands_per_second");
    }
    if (!decision.refusal && message.size() >= m_policy->messageKiB * (1024 / mostBytesOfOne)
        && message.toUtf8().size() > qint64(m_policy->messageKiB) * 1024) {
        decision.refusal = refusal(QStringLiteral("the text is longer than limits.message_kib"),
                                   "limits.message_kib");
    }
    if (!decision.refusal && decision.facts) {
        ArgumentRules rules(*m_policy, *decision.facts, message, m_ownPages);
        decision.refusal = rules.decide();
        if (!decision.refusal) {
            decision.message = rules.message();
        }
    }
    return decision;
}

} // namespace accesspolicy
