// SPDX-License-Identifier: MIT
#pragma once

#include <QRectF>
#include <QString>

class QPainter;

namespace portable {

/// The texts encoded in the sheet's barcodes.
QString testSheetQrText();
QString testSheetCode128Text();

/// The sheet in its own coordinates: A4 landscape.
constexpr QRectF testSheetArea{0, 0, 1400, 990};

/// Paints the printed sheet (form, text, photo, QR code and Code 128) into testSheetArea.
void paintTestSheet(QPainter &painter);

} // namespace portable
