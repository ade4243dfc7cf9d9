// SPDX-License-Identifier: MIT
#pragma once

#include "portable/card/apdu.h"

#include <QJsonObject>

namespace portable {

/**
 * Reads the basic data of a social security card that need neither PIN nor key: the files EF05
 * (card) and EF06 (holder) of its social security application, in the layout of LD/T 33. Fields
 * that the card doesn't give are missing; without the holder's number the read fails.
 * \return "number", "name", "sex", "nation", "birthDate", "cardNumber", "validFrom", "validTo";
 *         empty on failure, with the reason in `error`
 */
QJsonObject readSocialCard(CardChannel &card, QString *error);

} // namespace portable
