// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace portable {

/// A set of types of codes.
using BarcodeFormats = std::uint32_t;

/// A type of codes, as a set of one. The decoders have numbers of their own, which change.
namespace barcode {

constexpr BarcodeFormats aztec = 1U << 0;
constexpr BarcodeFormats codabar = 1U << 1;
constexpr BarcodeFormats code39 = 1U << 2;
constexpr BarcodeFormats code93 = 1U << 3;
constexpr BarcodeFormats code128 = 1U << 4;
constexpr BarcodeFormats dataBar = 1U << 5;
constexpr BarcodeFormats dataBarExpanded = 1U << 6;
constexpr BarcodeFormats dataMatrix = 1U << 7;
constexpr BarcodeFormats ean8 = 1U << 8;
constexpr BarcodeFormats ean13 = 1U << 9;
constexpr BarcodeFormats itf = 1U << 10;
constexpr BarcodeFormats maxiCode = 1U << 11;
constexpr BarcodeFormats microQr = 1U << 12;
constexpr BarcodeFormats pdf417 = 1U << 13;
constexpr BarcodeFormats qr = 1U << 14;
constexpr BarcodeFormats upcA = 1U << 15;
constexpr BarcodeFormats upcE = 1U << 16;

constexpr BarcodeFormats allDataBar = dataBar | dataBarExpanded;
constexpr BarcodeFormats linear =
    codabar | code39 | code93 | code128 | allDataBar | ean8 | ean13 | itf | upcA | upcE;
constexpr BarcodeFormats any = linear | aztec | dataMatrix | maxiCode | microQr | pdf417 | qr;

} // namespace barcode

} // namespace portable
