// SPDX-License-Identifier: MIT
#pragma once

#include "portable/document/pagespool.h"

namespace portable {

/// How pictures are merged into one.
struct MergePlan
{
    bool sideBySide = false; ///< Or else one under another.
    int gap = 0; ///< White pixels between two.
    qint64 maxWidth = 0; ///< Of the result in pixels; 0: no limit but that of JPEG.
    qint64 maxHeight = 0;
};

/// A plan from the numbers that a page gives; false with a reason where they make none.
bool readMergePlan(short direction, short gap, qint64 maxWidth, qint64 maxHeight, MergePlan *plan,
                   QString *error);

/**
 * Writes pages as one JPEG: along the plan's direction in their order, aligned at the left or at
 * the top, on white. One that is larger than the plan or JPEG allows is scaled down as a whole, and
 * its resolution with it. Takes the memory of a page, however many there are.
 * \param pages  Bgr
 * \return false with a reason that names the path; then no file is there
 */
bool writeMergedImage(const PageSpool &pages, const MergePlan &plan, int quality,
                      const QString &path, QString *error);

} // namespace portable
