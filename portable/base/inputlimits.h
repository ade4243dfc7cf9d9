// SPDX-License-Identifier: MIT
/// \file How large the files may be that pages name, and what is made of them. docs/portable.md
/// lists these limits.
#pragma once

#include <QtGlobal>

#include <chrono>

namespace portable {
namespace limits {

constexpr qint64 mebi = qint64(1) << 20;

// Files, in bytes.

/// Of Base64Encode. On its way to a page a text is held several times, with two bytes a character;
/// a QString holds at most 2^30 characters.
constexpr qint64 encodedFile = 128 * mebi;
/// A BMP of the most pixels; it is held in memory while it is decoded.
constexpr qint64 pictureFile = 512 * mebi;
/// A recording of several hours; it is read while it is sent.
constexpr qint64 uploadedFile = 4096 * mebi;
/// A card's JSON or photo: pages get it in one text.
constexpr qint64 cardFile = mebi;
/// Far above any of the models in use.
constexpr qint64 modelFile = 64 * mebi;
/// devices.ini, which is read at every use.
constexpr qint64 settingsFile = mebi;
/// A file that says it has no bytes, and has some: the kernel makes those up as they are read, and
/// some never end.
constexpr qint64 sizelessFile = mebi;

// Pictures.

/// What is decoded takes 7 bytes a pixel: 1.1 GB. A0 at 300 dpi has 140 million, A2 at 600 dpi too.
constexpr qint64 pixels = 160'000'000;
/// A baseline JPEG that becomes a page unchanged is never all in memory: A0 at 600 dpi has 558
/// million.
constexpr qint64 unchangedPixels = 600'000'000;
/// Of a JPEG. Progressive ones of today's encoders have about 10.
constexpr int jpegScans = 50;
/// Each scan may go through all pixels, even if it has only a few bytes: 1.5 s of work at most.
constexpr qint64 jpegScanPixels = 4'000'000'000;
/// From the first byte of a picture to the last. The largest take 2 to 3 s on a fast machine.
constexpr std::chrono::seconds decoding{10};

/// Of a video. 8K has 33 million.
constexpr qint64 videoPixels = 40'000'000;

// Documents and the disk.

/// What stays free on a disk; see diskspace.h.
constexpr qint64 diskReserve = 256 * mebi;
constexpr int documentPages = 2000; ///< Four times what a thick file of a branch has.
/// Below 4 GiB, from where on some readers of ZIP (OFD) and PDF give up.
constexpr qint64 documentBytes = 4000 * mebi;
/// The pixels of a merged picture, uncompressed: 40 captures of 8 megapixels. JPEG ends at 65,500
/// pixels on a side, which 20 such captures exceed already.
constexpr qint64 mergedBytes = 1024 * mebi;

} // namespace limits
} // namespace portable
