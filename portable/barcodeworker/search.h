// SPDX-License-Identifier: MIT
#pragma once

#include "portable/barcodeworker/formats.h"

#include <opencv2/core.hpp>

#include <chrono>
#include <functional>
#include <string>

namespace portable {

/// A code as ZXing or ZBar reads it.
struct FoundBarcode
{
    BarcodeFormats format = 0; ///< One.
    bool hasEncoding = false; ///< Whether the code says how its text is encoded.
    std::string text; ///< UTF-8; a guess where the code doesn't say its encoding.
    std::string bytes; ///< What the code holds.
};

/**
 * Looks for codes at any angle, at most 32; codes of the same type and text count as one. ZXing may
 * abort the process or take hours: that is why this runs in a process of its own.
 * \param grey    8-bit; small enough for the time there is
 * \param end     no new pass is begun after it
 * \param report  is called with each code as it is found
 * \return false when passes were left out because the time was over
 */
bool searchBarcodes(const cv::Mat &grey, int kind, bool withDataBar,
                    std::chrono::steady_clock::time_point end,
                    const std::function<void(const FoundBarcode &)> &report);

} // namespace portable
