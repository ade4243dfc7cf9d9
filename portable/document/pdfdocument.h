// SPDX-License-Identifier: MIT
#pragma once

#include "portable/document/pagespool.h"

namespace portable {

/**
 * Writes pages as a PDF: each of the size that its pixels have at its resolution, its bytes as they
 * are.
 * \param pages  JPEG and Group4
 * \return false with a reason that names the path; then no file is there
 */
bool writePdf(const PageSpool &pages, const QString &path, QString *error);

} // namespace portable
