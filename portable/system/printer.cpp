// SPDX-License-Identifier: MIT
#include "portable/system/printer.h"

#include "portable/picture/bilevel.h"
#include "portable/picture/imageconversion.h"
#include "portable/system/transfermodule.h"

#include <QBuffer>
#include <QImage>
#include <QPageSize>
#include <QPainter>
#include <QPdfWriter>

namespace portable {

namespace {

QImage imageOf(const cv::Mat &picture)
{
    return picture.channels() == 1 ? QImage(picture.data, picture.cols, picture.rows,
                                            int(picture.step), QImage::Format_Grayscale8)
                                   : toImage(picture);
}

} // namespace

QByteArray printedPage(const PrintJob &job, const Sheet &sheet)
{
    constexpr int unitsPerInch = 1200; // of the page's coordinates; the picture isn't resampled
    constexpr double unitsPerMillimeter = unitsPerInch / 25.4;
    const QRectF area = printableArea(sheet);
    cv::Mat picture = job.isGrey ? greyOf(job.picture) : job.picture;
    if ((picture.cols > picture.rows) != (area.width() > area.height())) {
        cv::Mat turned;
        cv::rotate(picture, turned, cv::ROTATE_90_CLOCKWISE);
        picture = turned;
    }
    const QSizeF size = QSizeF(picture.cols, picture.rows).scaled(area.size(), Qt::KeepAspectRatio);
    QRectF place(QPointF(), size);
    place.moveCenter(area.center());

    QBuffer file;
    file.open(QIODevice::WriteOnly);
    QPdfWriter writer(&file);
    writer.setTitle(job.title);
    writer.setResolution(unitsPerInch);
    writer.setPageSize(
        QPageSize(sheet.size, QPageSize::Millimeter, QString(), QPageSize::ExactMatch));
    writer.setPageMargins({});
    QPainter painter(&writer);
    painter.scale(unitsPerMillimeter, unitsPerMillimeter);
    painter.drawImage(place, imageOf(picture));
    painter.end();
    return file.data();
}

bool print(const PrintJob &job, const QString &printer, QString *error)
{
    const TransferModule *module = transferModule(error);
    return module && module->print(job, printer, printedPage, error);
}

} // namespace portable
