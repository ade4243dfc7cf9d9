// SPDX-License-Identifier: MIT
#pragma once

#include "portable/picture/picturefile.h"

#include <optional>

namespace portable {

/** The resolution that a PNG, BMP or TIFF file tells; none for other files and where it is not
 * told. */
std::optional<Dpi> storedDpi(const QByteArray &file);

} // namespace portable
