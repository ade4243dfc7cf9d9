// SPDX-License-Identifier: MIT
#pragma once

#include "portable/document/pagespool.h"

namespace portable {

/// How pictures are merged into one: beside or below each other.
struct MergePlan
{
    bool sideBySide = false; ///< Otherwise one below another.
    int gap = 0; ///< White pixels between two pictures.
    qint64 maxWidth = 0; ///< Of the result in pixels; 0: only the limit of JPEG.
    qint64 maxHeight = 0;
};

/// Checks the numbers that a page gives. \return false with a reason when they are no plan
bool readMergePlan(short direction, short gap, qint64 maxWidth, qint64 maxHeight, MergePlan *plan,
                   QString *error);

/**
 * Writes pages as one JPEG: in order along the plan's direction, aligned left or top, on white. A
 * result larger than the plan or JPEG allows is scaled down as a whole, and its resolution with it.
 * Needs the memory of one page, however many there are.
 * \param pages  Bgr
 * \return false with a reason that names the path; no file is created then
 */
bool writeMergedImage(const PageSpool &pages, const MergePlan &plan, int quality,
                      const QString &path, QString *error);

} // namespace portable
