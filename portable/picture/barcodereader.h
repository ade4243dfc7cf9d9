// SPDX-License-Identifier: MIT
#pragma once

#include <QStringList>
#include <opencv2/core.hpp>

#include <chrono>

namespace portable {

/// The kind that stands for all kinds of codes.
constexpr long anyBarcode = 0;

/// For one picture.
constexpr std::chrono::milliseconds barcodeTime{3000};

/// Whether `kind` is one of those that sGetBarCodeEx documents.
bool isBarcodeKind(long kind);

/**
 * Reads the codes in a picture, at any angle; codes of the same type and text count as one. The
 * time grows with the picture's size: 0.2 s for full HD without any code. No new pass starts after
 * `time`; one still running two thirds of it later is killed.
 *
 * The search runs in a process of its own (barcodeworker): pictures exist on which the decoder
 * aborts, takes hours or all of the memory. After an abort the picture is searched once more,
 * without the DataBar family. Callable from any thread. Throws std::runtime_error when it can't be
 * searched. \param picture  8-bit BGR or grey \param kind     isBarcodeKind() \return the texts as
 * they were found, at most 32; empty without a code
 */
QStringList readBarcodes(const cv::Mat &picture, long kind = anyBarcode,
                         std::chrono::milliseconds time = barcodeTime);

} // namespace portable
