// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace deviceprocess {

/// How the pixels of a picture travel.
enum class PixelPlace : std::uint8_t {
    None, ///< There is no picture.
    Inline, ///< As bytes in the message.
    Shared, ///< In the memory whose descriptor comes along.
};

/// A picture without its pixels; what follows it in a message says `place`.
struct PictureHeader
{
    PixelPlace place = PixelPlace::None;
    std::int32_t width = 0; ///< In pixels.
    std::int32_t height = 0;
    std::int32_t format = 0; ///< QImage::Format, or the type of a cv::Mat.
    std::uint64_t bytesPerLine = 0;
    std::int32_t dotsPerMeterX = 0; ///< Of a QImage; 0: nothing has set it.
    std::int32_t dotsPerMeterY = 0;
};

/// Where shared pixels begin; follows the header.
struct SharedPixels
{
    std::uint64_t segment = 0; ///< Its number; the same memory always has the same one.
    std::uint64_t segmentSize = 0; ///< In bytes.
    std::uint64_t offset = 0; ///< In bytes.
    std::uint64_t held = 0; ///< Goes back to the host when nobody looks at the pixels any more.
};

/// No picture is larger: beyond, an answer is garbage.
constexpr std::int32_t maxSide = 65535;

} // namespace deviceprocess
