// SPDX-License-Identifier: MIT
#pragma once

#include "portable/card/apdu.h"

#include <QJsonObject>

namespace portable {

/**
 * Reads the number and the expiry of a bank card (EMV Books 1 and 3): chooses the application,
 * starts a transaction of nothing, which is never completed, and reads the records that are named.
 * \param contactlessFirst  which of the two directories of applications is asked first
 * \return "number" (digits) and, if it is told, "expiry" (2030-12); on failure nothing, with the
 *         reason for the log
 */
QJsonObject readBankCard(CardChannel &card, bool contactlessFirst, QString *error);

} // namespace portable
