// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QJsonObject>

namespace portable {

/**
 * Decodes the text block of an ID card (GA 450; the layouts for foreigners and for residents from
 * Hong Kong, Macao and Taiwan: their later editions): 256 bytes, UTF-16 little endian, fields of
 * fixed sizes.
 * \return the fields that the card has, with the names of docs/cards.md; empty on failure, with the
 *         reason, which holds nothing of the card, in `error`
 */
QJsonObject decodeIdCardText(const QByteArray &block, QString *error);

} // namespace portable
