// SPDX-License-Identifier: MIT
/// \file What the library and its barcode worker say to each other, over a socket of whole messages
/// (SOCK_SEQPACKET). Both are of the same build: the layout is that of the compiler.
#pragma once

#include <cstdint>

namespace portable {

constexpr std::int32_t largestBarcodeKind = 11; ///< Of sGetBarCodeEx; 0 stands for all.

/// A picture to be searched. The message brings the descriptor of a file in memory, which holds
/// width * height bytes: 8-bit grey, rows without padding.
struct BarcodeRequest
{
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::int32_t kind = 0;
    std::int32_t withDataBar = 1; ///< 0 leaves the DataBar family out.
    std::int32_t milliseconds = 0; ///< After these no new pass is begun.
};

/// How each message of the worker begins.
struct BarcodeReply
{
    enum Type : std::int32_t {
        Found, ///< The text in UTF-8 follows, then the bytes of the code.
        Done,
        OutOfTime, ///< Done, but some passes were left out.
        Failed ///< A reason follows as text.
    };
    Type type = Done;
    std::uint32_t format = 0; ///< The type of the code, of BarcodeFormats.
    std::int32_t hasEncoding = 0; ///< Whether the code says how its text is encoded.
    std::uint32_t textSize = 0;
};

/// A reply with all that follows: codes hold at most some 7,000 characters.
constexpr std::uint32_t largestBarcodeReply = 64 * 1024;

} // namespace portable
