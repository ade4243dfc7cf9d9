// SPDX-License-Identifier: MIT
/// \file What a card read gave, and the texts that pages get of it; docs/cards.md shows them.
#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

namespace portable {

enum class CardKind { Identity, SocialSecurity, Bank, Ic };

/// The kind in card files and devices.ini: "idcard".
QString cardKey(CardKind kind);

/// The kind for the log: "identity card".
QString cardName(CardKind kind);

/// How a read ended. The numbers are the "code" of the texts.
enum class CardStatus { Read = 0, NoReader = 1, NoCard = 2, Unreadable = 3 };

struct CardResult
{
    CardStatus status = CardStatus::Unreadable;
    QJsonObject fields; ///< Of the card; empty unless it was read.

    bool isRead() const { return status == CardStatus::Read; }
};

/// \name The text of a result: a JSON object with the fields, "code", "result" and "message"
///@{
QByteArray cardText(const CardResult &result); ///< In UTF-8.
QByteArray asciiCardText(const CardResult &result); ///< In ASCII: \uXXXX for all else.

/// As the inside of a JSON string, for a caller who sets it between quotes as it is.
QString quotedCardText(const CardResult &result);
///@}

} // namespace portable
