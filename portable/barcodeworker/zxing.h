// SPDX-License-Identifier: MIT
/// \file The decoder, with the same answers from each of its versions: 1.1, 1.4, and 2.2 and later.
#pragma once

#include "portable/barcodeworker/search.h"

#include <opencv2/core.hpp>

#include <array>
#include <optional>
#include <string>

namespace portable {

/// A code and where it is in the picture.
struct ReadCode
{
    FoundBarcode found;

    /// Those of a matrix code; for a linear code the ends of some scan lines.
    std::array<cv::Point, 4> corners;
};

/**
 * Reads one code. May abort the process or take hours.
 * \param grey     8-bit
 * \param formats  the types of codes to look for
 */
std::optional<ReadCode> readWithZxing(const cv::Mat &grey, BarcodeFormats formats);

} // namespace portable
