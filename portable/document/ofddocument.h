// SPDX-License-Identifier: MIT
#pragma once

#include "portable/document/pagespool.h"

namespace portable {

/**
 * Writes pages as an OFD (GB/T 33190-2016): each has the size of its pixels at its resolution; its
 * bytes are embedded unchanged.
 * \param pages  JPEG and Png
 * \return false with a reason that names the path; no file is created then
 */
bool writeOfd(const PageSpool &pages, const QString &path, QString *error);

} // namespace portable
