// SPDX-License-Identifier: MIT
/**
 * \file
 * BER-TLV, the form of most card data (ISO 7816-4 section 5.2.2; EMV Book 3, annex B). Cards may be
 * hostile: nothing is read past its end, and nesting is limited.
 */
#pragma once

#include <QByteArray>

#include <vector>

namespace portable {

/**
 * The values of all objects with this tag, in their order, also inside of constructed objects.
 * \param tag  all of its bytes, 0x9F38
 * \return without those of an object whose content is malformed; nothing when the whole is
 */
std::vector<QByteArray> findAllTlv(const QByteArray &bytes, quint32 tag);

/// The first value with this tag that isn't empty; else empty.
QByteArray findTlv(const QByteArray &bytes, quint32 tag);

/// An element of a data object list: what a card asks for.
struct DolEntry
{
    quint32 tag = 0;
    int length = 0;
};

/// Reads a data object list (tags and lengths alone). False: malformed.
bool parseDol(const QByteArray &bytes, std::vector<DolEntry> *entries);

} // namespace portable
