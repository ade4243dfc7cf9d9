// SPDX-License-Identifier: MIT
/// \file Simulated cards: JSON files, and which of them is on the reader.
#pragma once

#include "portable/card/cardresult.h"

#include <map>

namespace portable {

/**
 * The section [cards] of devices.ini; docs/cards.md describes its keys. The default is what
 * `reader=auto` means.
 */
struct CardConfig
{
    bool isAuto = true; ///< Simulated cards are read where there is no reader, if simulates().
    bool usesPcsc = true;
    QString pcscReader; ///< Part of the name of the PC/SC reader; empty: any.
    bool usesModule = true; ///< ID cards are read by a module on a serial port.
    QString modulePort; ///< Path of that port; empty: it is looked for.
    bool isSimulatedReader = false; ///< The simulated reader was asked for outright.

    std::map<CardKind, QString> files; ///< Card file by kind, for the kinds with a key.
    QString commonFile; ///< Card file for all other kinds; empty: the first of its kind.
    bool isSimulated = false; ///< See isSimulationEnabled().

    /// Whether there is a simulated reader for this kind: cards are simulated, or one is named.
    bool simulates(CardKind kind) const;
    bool simulatesAny() const; ///< The same for any kind.
    bool hasNoReader() const { return !usesPcsc && !usesModule && !isSimulatedReader; }
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
