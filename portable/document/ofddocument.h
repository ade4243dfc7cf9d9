// SPDX-License-Identifier: MIT
#pragma once

#include "portable/document/pagespool.h"

namespace portable {

/**
 * Writes pages as an OFD (GB/T 33190-2016): each of the size that its pixels have at its
 * resolution, its bytes as they are.
 * \param pages  JPEG and Png
 * \return false with a reason that names the path; then no file is there
 */
bool writeOfd(const PageSpool &pages, const QString &path, QString *error);

} // namespace portable
