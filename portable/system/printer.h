// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QMarginsF>
#include <QRectF>
#include <QSizeF>
#include <QString>
#include <opencv2/core.hpp>

#include <algorithm>

namespace portable {

constexpr int maxCopies = 99;

/// A picture to print.
struct PrintJob
{
    cv::Mat picture; ///< 8-bit BGR or greyscale.
    QString title; ///< Name in the print queue and the log.
    int copies = 1; ///< 1 to maxCopies.
    bool isGrey = false; ///< Prints in greyscale.
};

/// A printer's paper, in millimeters.
struct Sheet
{
    QSizeF size{210, 297};
    QMarginsF margins; ///< Area the printer can't print on.
};

/// The part of the sheet to print on; leaves a small margin even on borderless printers.
inline QRectF printableArea(const Sheet &sheet)
{
    constexpr double minMargin = 5;
    const QMarginsF &margins = sheet.margins;
    return QRectF(QPointF(), sheet.size)
        .marginsRemoved({std::max(margins.left(), minMargin), std::max(margins.top(), minMargin),
                         std::max(margins.right(), minMargin),
                         std::max(margins.bottom(), minMargin)});
}

/**
 * A page with the job's picture, centered, as large as fits; rotated by 90 degrees if it is larger
 * that way.
 * \return a PDF with one page of the sheet's size
 */
QByteArray printedPage(const PrintJob &job, const Sheet &sheet);

/**
 * Queues the job at CUPS for the printer's default paper. Blocks for some seconds if the print
 * server doesn't respond. \param printer  a CUPS destination; empty: the default one \return false,
 * with a reason for the log, unless the job has been queued
 */
bool print(const PrintJob &job, const QString &printer, QString *error);

} // namespace portable
