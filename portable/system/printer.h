// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QMarginsF>
#include <QSizeF>
#include <QString>
#include <opencv2/core.hpp>

namespace portable {

constexpr int copiesAtMost = 99;

/// A picture to print.
struct PrintJob
{
    cv::Mat picture; ///< 8-bit BGR or grey.
    QString title; ///< What the print queue and the log call it.
    int copies = 1; ///< 1 to copiesAtMost.
    bool isGrey = false; ///< Prints without color.
};

/// What a printer prints on, in millimetres.
struct Sheet
{
    QSizeF size{210, 297};
    QMarginsF margins; ///< Where the printer can't print.
};

/**
 * A page with the job's picture as large as it fits, in the middle, turned by a quarter where that
 * makes it larger.
 * \return a PDF of one page of the sheet's size
 */
QByteArray printedPage(const PrintJob &job, const Sheet &sheet);

/**
 * Hands the job to CUPS, which prints it on the printer's default paper. A server that doesn't
 * answer makes this wait for some seconds.
 * \param printer  a CUPS destination; empty: the default one
 * \return false, with a reason for the log, unless the job has been queued
 */
bool print(const PrintJob &job, const QString &printer, QString *error);

} // namespace portable
