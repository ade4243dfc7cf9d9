// SPDX-License-Identifier: MIT
/// \file How pictures become pages.
#pragma once

#include "portable/document/pagespool.h"

#include <optional>

namespace portable {

// Of a picture in memory: 8-bit BGR. None when the picture can't be encoded.

std::optional<PageImage> jpegPage(const cv::Mat &picture, int quality, Dpi dpi);
std::optional<PageImage> group4Page(const cv::Mat &picture, Dpi dpi);
std::optional<PageImage> bilevelPngPage(const cv::Mat &picture, Dpi dpi);
PageImage bgrPage(const cv::Mat &picture, Dpi dpi);

// Of the bytes of an image file. Their resolution is the file's own, or else `dpi`, where the file
// tells none or one that no scanner has. None, with a reason, when it isn't a whole image.

/// A JPEG stays as it is, but for those that need turning or that viewers may show wrong.
std::optional<PageImage> jpegPageOf(const QByteArray &file, int quality, Dpi dpi, QString *error);
std::optional<PageImage> group4PageOf(const QByteArray &file, Dpi dpi, QString *error);

} // namespace portable
