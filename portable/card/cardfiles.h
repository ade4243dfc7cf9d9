// SPDX-License-Identifier: MIT
/// \file Simulated cards: JSON files, and which of them is on the reader.
#pragma once

#include "portable/card/cardresult.h"

#include <map>

namespace portable {

/// Where cards are read.
enum class CardReaderChoice {
    Auto, ///< On a PC/SC reader; without a reader, the simulated one if CardConfig::simulates().
    Pcsc,
    Simulated,
    None ///< Nowhere: no reader is connected.
};

/// The section [cards] of devices.ini; docs/cards.md describes its keys.
struct CardConfig
{
    CardReaderChoice reader = CardReaderChoice::Auto;
    std::map<CardKind, QString> files; ///< Card file by kind, for the kinds with a key.
    QString commonFile; ///< Card file for all other kinds; empty: the first of its kind.
    bool isSimulated = false; ///< See isSimulationEnabled().

    /// Whether there is a simulated reader for this kind: cards are simulated, or one is named.
    bool simulates(CardKind kind) const;
    bool simulatesAny() const; ///< The same for any kind.
};

/// Reads a devices.ini. Logs unknown keys and values; their settings keep the default.
CardConfig readCardConfig(const QString &path);

/**
 * Reads the simulated card of a kind. On failure the log gives the reason.
 * \param folder  folder of the card files and their photos
 * \return the fields of the file; "photo" is the picture in base64 instead of its file name, and
 *         "simulated" is true
 */
CardResult readSimulatedCard(const QString &folder, CardKind kind, const CardConfig &config);

} // namespace portable
