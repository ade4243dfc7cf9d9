// SPDX-License-Identifier: MIT
#pragma once

#include "portable/document/pagespool.h"

namespace portable {

/// For archives, PDF/A-2b (ISO 19005-2) can be written.
enum class PdfKind { Plain, Archive };

/**
 * Writes pages as a PDF: each has the size of its pixels at its resolution; its bytes are embedded
 * unchanged. The file's name is its title.
 * \param pages  JPEG and Group4
 * \return false with a reason that names the path; no file is created then
 */
bool writePdf(const PageSpool &pages, const QString &path, PdfKind kind, QString *error);

} // namespace portable
