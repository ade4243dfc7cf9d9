// SPDX-License-Identifier: MIT
/// \file Pictures turned into pages of a document.
#pragma once

#include "portable/document/pagespool.h"

#include <optional>

namespace portable {

// From a picture in memory, 8-bit BGR. nullopt when the picture can't be encoded.

std::optional<PageImage> jpegPage(const cv::Mat &picture, int quality, Dpi dpi);
std::optional<PageImage> group4Page(const cv::Mat &picture, Dpi dpi);
std::optional<PageImage> bilevelPngPage(const cv::Mat &picture, Dpi dpi);
PageImage bgrPage(const cv::Mat &picture, Dpi dpi);

// From the bytes of an image file. The resolution is the file's own, or `dpi` when the file has
// none or an absurd one. nullopt, with a reason, when the file isn't a complete image.

/// A JPEG is embedded unchanged, unless it must be rotated or viewers might not show it properly.
std::optional<PageImage> jpegPageOf(const QByteArray &file, int quality, Dpi dpi, QString *error);
std::optional<PageImage> group4PageOf(const QByteArray &file, Dpi dpi, QString *error);

} // namespace portable
