// SPDX-License-Identifier: MIT
/// \file Simulated cards: JSON files, and which of them lies on the reader.
#pragma once

#include "portable/card/cardresult.h"

#include <map>

namespace portable {

/// Where cards come from.
enum class CardReaderChoice {
    Auto, ///< A card on a PC/SC reader; without one the simulated card.
    Pcsc,
    Simulated,
    None ///< No reader is connected.
};

/// [cards] of devices.ini; docs/cards.md says what each key means.
struct CardConfig
{
    CardReaderChoice reader = CardReaderChoice::Auto;
    std::map<CardKind, QString> files; ///< The card file of each kind that the file names.
    QString commonFile; ///< For the kinds that it doesn't name; empty: none.
};

/// Reads a devices.ini. What can't be understood is said in the log, and left as it is without.
CardConfig readCardConfig(const QString &path);

/**
 * Reads the simulated card of a kind that lies on the reader. What is wrong goes to the log.
 * \param folder  of the card files; their photos lie below it too
 * \return the file's fields, "photo" with the picture as base64 in place of its file's name
 */
CardResult readSimulatedCard(const QString &folder, CardKind kind, const CardConfig &config);

} // namespace portable
