// SPDX-License-Identifier: MIT
#pragma once

#include "access/handshake.h"
#include "access/policy.h"
#include "access/refusal.h"
#include "access/visitor.h"
#include "dispatch/commandfacts.h"

#include <QHostAddress>
#include <QString>

#include <memory>
#include <optional>

namespace accesspolicy {

/**
 * The two doors: decides by a policy whether a page may connect, and whether a text of it may be
 * carried out. Decides only; AccessControl says and does what follows. Main thread only.
 */
class Doorkeeper
{
public:
    /// \param ownPages  path of the pages that a policy calls "own"
    Doorkeeper(std::shared_ptr<const Policy> policy, const QString &ownPages);

    const Policy &policy() const { return *m_policy; }

    /// What a handshake comes with.
    struct Arrival
    {
        Handshake handshake;
        QHostAddress local; ///< the address that the page has connected to
        const VisitorCounts &counts;
    };

    /**
     * The first door.
     * \param origin  receives the page's origin, also of a refused one, as far as it can be read
     */
    std::optional<Refusal> atHandshake(const Arrival &arrival, Origin *origin) const;

    /// Whether pages of this origin may be connected at all.
    std::optional<Refusal> atOrigin(const Origin &origin) const;

    /// What is to be done with a text.
    struct Decision
    {
        QString what; ///< the command's name, "#", "@", or "an unknown command"
        const commands::Facts *facts = nullptr; ///< null for what is no known command
        std::optional<Refusal> refusal;
        QString message; ///< to be carried out instead, with real paths in it
    };

    /// The second door. Takes from the page's rate.
    Decision atText(Visitor &visitor, const QString &message) const;

private:
    const Grant *grantFor(const Origin &origin) const;
    std::optional<Refusal> byGrant(const Visitor &visitor, const QString &message,
                                   const commands::Facts *facts) const;
    std::optional<Refusal> byToken(const Handshake &handshake) const;
    bool listensOn(const QHostAddress &address) const;

    const std::shared_ptr<const Policy> m_policy;
    const QByteArray m_ownPages; // the real path
};

} // namespace accesspolicy
