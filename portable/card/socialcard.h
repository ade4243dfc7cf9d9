// SPDX-License-Identifier: MIT
#pragma once

#include "portable/card/apdu.h"

#include <QJsonObject>

namespace portable {

/**
 * Reads the basic data of a social security card that need neither PIN nor key: the files EF05
 * (card) and EF06 (holder) of its social security application, as LD/T 33 lays them out. What a
 * card keeps to itself is left out; without the holder's number it counts as unreadable.
 * \return "number", "name", "sex", "nation", "birthDate", "cardNumber", "validFrom", "validTo"; on
 *         failure nothing, with the reason for the log
 */
QJsonObject readSocialCard(CardChannel &card, QString *error);

} // namespace portable
