// SPDX-License-Identifier: MIT
#pragma once

#include <QStringList>
#include <opencv2/core.hpp>

namespace portable {

/// The kind that stands for all kinds of codes.
constexpr long anyBarcode = 0;

/// Whether `kind` is one of those that sGetBarCodeEx documents.
bool isBarcodeKind(long kind);

/**
 * Reads the codes in a picture, at any angle; codes of the same type and text count as one. The
 * time grows with the picture's size: 0.2 s for full HD without any code. No new pass starts after
 * 3 s; a pass still running 2 s later is abandoned. Throws what OpenCV and ZXing throw, and
 * std::runtime_error while too many abandoned passes are still running.
 * \param picture  8-bit BGR or grey; its pixels must not be changed any more
 * \param kind     isBarcodeKind()
 * \return the texts as they were found, at most 32; empty without a code
 */
QStringList readBarcodes(const cv::Mat &picture, long kind = anyBarcode);

} // namespace portable
