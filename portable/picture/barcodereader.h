// SPDX-License-Identifier: MIT
#pragma once

#include <QStringList>
#include <opencv2/core.hpp>

namespace portable {

/// The kind of code that stands for all of them.
constexpr long anyBarcode = 0;

/// Whether `kind` is one of those that sGetBarCodeEx documents.
bool isBarcodeKind(long kind);

/**
 * Reads the codes in a picture, whichever way it is turned; two codes of one type with one text
 * count as one. Takes time with the picture's size: 0.2 s for full HD without any code. No new look
 * is taken after 3 s; one that still isn't over 2 s later is left to itself. Throws what OpenCV and
 * ZXing throw, and when too many of those are under way.
 * \param picture  8-bit BGR or grey; nobody writes to its pixels any more
 * \param kind     isBarcodeKind()
 * \return the texts as they were found, at most 32; empty without a code
 */
QStringList readBarcodes(const cv::Mat &picture, long kind = anyBarcode);

} // namespace portable
