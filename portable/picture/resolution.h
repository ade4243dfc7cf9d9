// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

#include <optional>

namespace portable {

/// Dots per inch, both at least 1.
struct Dpi
{
    int x = 300;
    int y = 300;
};

/**
 * Resolution stored in a PNG, BMP or TIFF file; nullopt when absent or for other formats. It is the
 * file's own word, and may be absurd.
 */
std::optional<Dpi> storedDpi(const QByteArray &file);

} // namespace portable
