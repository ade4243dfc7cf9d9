// SPDX-License-Identifier: MIT
/// \file Result of a card read, and the texts that pages get; docs/cards.md shows them.
#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

namespace portable {

enum class CardKind { Identity, SocialSecurity, Bank, Ic };

/// Name of the kind in card files and devices.ini, such as "idcard".
QString cardKey(CardKind kind);

/// Name of the kind for the log, such as "identity card".
QString cardName(CardKind kind);

/// Outcome of a read. The numbers are the "code" of the texts.
enum class CardStatus { Read = 0, NoReader = 1, NoCard = 2, Unreadable = 3 };

struct CardResult
{
    CardStatus status = CardStatus::Unreadable;
    QJsonObject fields; ///< Data of the card; empty unless it was read.

    bool isRead() const { return status == CardStatus::Read; }
};

/// \name The text of a result: a JSON object with the fields, "code", "result" and "message"
///@{
QByteArray cardText(const CardResult &result); ///< In UTF-8.
QByteArray asciiCardText(const CardResult &result); ///< In ASCII, with \uXXXX escapes.

/// As the content of a JSON string, for callers that put it between quotes unchanged.
QString quotedCardText(const CardResult &result);
///@}

} // namespace portable
