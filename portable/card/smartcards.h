// SPDX-License-Identifier: MIT
#pragma once

#include "portable/card/apdu.h"

#include <QJsonObject>

#include <functional>

namespace portable {

/// What a search for a real card found.
enum class CardPresence { NoReader, NoCard, Card };

/// Result of a read of a real card.
struct CardAttempt
{
    CardPresence presence = CardPresence::Card;
    QJsonObject fields; ///< Data of the card; empty unless it was read.
    QString reason; ///< Why there are no fields, for the log.
};

/// The smart card readers of this machine. Used by one thread at a time.
class SmartCards
{
public:
    virtual ~SmartCards() = default;

    /// Reads a card. \return false if it isn't the right one, to go on with the next
    using Read = std::function<bool(CardConnection &)>;

    /**
     * Whether there is a reader; if not, the reason is in `reason`.
     * \param name  part of the reader's name in any case; empty: any reader
     */
    virtual bool hasReader(const QString &name, QString *reason) = 0;

    /**
     * Passes one card after another to `read`, until it returns true.
     * \param name              the readers, as above
     * \param contactlessFirst  whether contactless cards come before contact cards
     * \param reason            receives why there is no reader or card, or no connection to it
     */
    virtual CardPresence visit(const QString &name, bool contactlessFirst, const Read &read,
                               QString *reason) = 0;
};

/// The readers of PC/SC (pcsc-lite). Without its service or a reader, every call fails at once.
class PcscCards : public SmartCards
{
public:
    bool hasReader(const QString &name, QString *reason) override;
    CardPresence visit(const QString &name, bool contactlessFirst, const Read &read,
                       QString *reason) override;
};

} // namespace portable
