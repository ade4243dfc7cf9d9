// SPDX-License-Identifier: MIT
#pragma once

#include "portable/card/apdu.h"

#include <QJsonObject>

namespace portable {

/**
 * Reads number and expiry of a bank card (EMV Books 1 and 3): selects the application, starts a
 * transaction over nothing, which is never completed, and reads the records that the card lists.
 * \param contactlessFirst  whether to try the contactless directory of applications first
 * \return "number" (digits) and, if the card has it, "expiry" (2030-12); empty on failure, with the
 *         reason in `error`
 */
QJsonObject readBankCard(CardChannel &card, bool contactlessFirst, QString *error);

} // namespace portable
