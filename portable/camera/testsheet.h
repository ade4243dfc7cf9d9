// SPDX-License-Identifier: MIT
#pragma once

#include <QRectF>
#include <QString>

class QPainter;

namespace portable {

/// The texts encoded in the barcodes of a page.
QString testSheetQrText(int page = 1);
QString testSheetCode128Text(int page = 1);

/// The sheet in its own coordinates: A4 landscape.
constexpr QRectF testSheetArea{0, 0, 1400, 990};

/**
 * Paints the printed sheet (form, text, photo, QR code and Code 128) into testSheetArea.
 * \param page  from 1; pages differ in number, color, name and codes
 */
void paintTestSheet(QPainter &painter, int page = 1);

} // namespace portable
