// SPDX-License-Identifier: MIT
/// \file Whether the data of a simulated card could be that of a real one.
#pragma once

#include "portable/card/cardresult.h"

#include <QDate>

namespace portable {

/**
 * What is wrong with a card's data: check digits (GB 11643 of citizens' numbers, ISO/IEC 7812 of
 * bank cards), dates that don't exist, contradict each other or are over.
 * \return empty if nothing is
 */
QString cardProblem(CardKind kind, const QJsonObject &fields, const QDate &today);

/// Whether this is a JPEG, PNG or BMP file, by how it begins.
bool isPicture(const QByteArray &content);

} // namespace portable
