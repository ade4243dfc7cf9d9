// SPDX-License-Identifier: MIT
#pragma once

#include "portable/document/pagespool.h"

namespace portable {

/**
 * Writes pages as a PDF: each has the size of its pixels at its resolution; its bytes are embedded
 * unchanged.
 * \param pages  JPEG and Group4
 * \return false with a reason that names the path; no file is created then
 */
bool writePdf(const PageSpool &pages, const QString &path, QString *error);

} // namespace portable
