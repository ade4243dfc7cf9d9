// SPDX-License-Identifier: MIT
#pragma once

#include "portable/barcodeworker/search.h"

#include <vector>

namespace portable {

/**
 * Linear codes as libzbar reads them, which finds blurred ones that ZXing doesn't. Codes of types
 * whose texts differ from ZXing's are left out.
 * \param grey  8-bit
 * \return nothing where libzbar is not installed
 */
std::vector<FoundBarcode> readWithZbar(const cv::Mat &grey, BarcodeFormats formats);

} // namespace portable
