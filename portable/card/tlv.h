// SPDX-License-Identifier: MIT
/**
 * \file
 * BER-TLV, the format of most card data (ISO 7816-4 section 5.2.2; EMV Book 3, annex B). Cards may
 * be hostile: nothing is read past its end, and nesting is limited.
 */
#pragma once

#include <QByteArray>

#include <vector>

namespace portable {

/**
 * The values of all objects with this tag, in order, including those in constructed objects.
 * \param tag  all its bytes, such as 0x9F38
 * \return values; malformed constructed objects contribute none, malformed `bytes` give none at all
 */
std::vector<QByteArray> findAllTlv(const QByteArray &bytes, quint32 tag);

/// The first non-empty value with this tag, or an empty one.
QByteArray findTlv(const QByteArray &bytes, quint32 tag);

/// An element of a data object list (DOL): data that the card asks for.
struct DolEntry
{
    quint32 tag = 0;
    int length = 0;
};

/// Reads a data object list, which has tags and lengths only. \return false if malformed
bool parseDol(const QByteArray &bytes, std::vector<DolEntry> *entries);

} // namespace portable
