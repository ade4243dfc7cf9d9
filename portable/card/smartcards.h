// SPDX-License-Identifier: MIT
#pragma once

#include "portable/card/apdu.h"

#include <functional>

namespace portable {

/// What stands before a read of a real card.
enum class CardPresence { NoReader, NoCard, Card };

/// The readers of this machine. Used by one thread at a time.
class SmartCards
{
public:
    virtual ~SmartCards() = default;

    /// Reads a card; false when it isn't the right one.
    using Read = std::function<bool(CardConnection &)>;

    /// Whether there is a reader; the reason for the log when not.
    virtual bool hasReader(QString *reason) = 0;

    /**
     * Hands one card after the other to `read`, until it returns true.
     * \param contactlessFirst  whether contactless cards come before those with contacts
     * \param reason  why there is no reader or card, or why a card can't be reached
     */
    virtual CardPresence visit(bool contactlessFirst, const Read &read, QString *reason) = 0;
};

/// Those of PC/SC (pcsc-lite). Without its service, or a reader, each call fails at once.
class PcscCards : public SmartCards
{
public:
    bool hasReader(QString *reason) override;
    CardPresence visit(bool contactlessFirst, const Read &read, QString *reason) override;
};

} // namespace portable
