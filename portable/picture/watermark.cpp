// SPDX-License-Identifier: MIT
#include "portable/picture/watermark.h"

#include <QFont>
#include <QFontMetrics>
#include <QImage>
#include <QPainter>
#include <opencv2/imgproc.hpp>

namespace portable {

namespace {

constexpr int longestText = 1000; // more doesn't fit on a picture and only costs time
constexpr int smallestPixels = 8;
constexpr int layout = Qt::AlignLeft | Qt::AlignTop | Qt::TextWordWrap | Qt::TextWrapAnywhere;

QFont fontOf(const Watermark &watermark, int dpi, int pictureHeight)
{
    constexpr int pointsPerInch = 72;
    QFont font;
    if (!watermark.family.isEmpty()) {
        font.setFamily(watermark.family);
    }
    const qint64 pixels = qint64(watermark.points) * dpi / pointsPerInch;
    font.setPixelSize(
        int(qBound<qint64>(smallestPixels, pixels, qMax(smallestPixels, pictureHeight / 2))));
    return font;
}

/// Start of a text of this length within `whole`; a negative position counts from the end.
int beginOf(int position, int length, int whole)
{
    const qint64 begin = position >= 0 ? position : qint64(whole) + position - length;
    return int(qBound<qint64>(0, begin, qMax(0, whole - length)));
}

} // namespace

cv::Mat stamped(const cv::Mat &picture, const Watermark &watermark, int dpi)
{
    const QString text = watermark.text.left(longestText);
    if (!watermark.isOn || text.trimmed().isEmpty() || picture.empty()) {
        return picture;
    }
    const QRect whole(0, 0, picture.cols, picture.rows);
    const QFont font = fontOf(watermark, dpi, picture.rows);
    // Slanted letters extend beyond their box.
    const int margin = font.pixelSize() / 4;
    const QRect box = QFontMetrics(font).boundingRect(whole, layout, text);
    const QPoint begin(beginOf(watermark.position.x(), box.width(), whole.width()),
                       beginOf(watermark.position.y(), box.height(), whole.height()));
    const QRect place(begin, box.size());
    const QRect touched = place.adjusted(-margin, -margin, margin, margin).intersected(whole);

    // Qt can paint on 24-bit BGR only from 5.14 on.
    cv::Mat result = picture.clone();
    cv::Mat part = result(cv::Rect(touched.x(), touched.y(), touched.width(), touched.height()));
    cv::Mat pixels;
    cv::cvtColor(part, pixels, cv::COLOR_BGR2BGRA);
    QImage image(pixels.data, pixels.cols, pixels.rows, int(pixels.step), QImage::Format_RGB32);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::TextAntialiasing);
    painter.setFont(font);
    painter.setPen(watermark.color);
    painter.setOpacity(watermark.opacity / 100.0);
    painter.drawText(place.translated(-touched.topLeft()), layout, text);
    painter.end();
    cv::cvtColor(pixels, part, cv::COLOR_BGRA2BGR);
    return result;
}

} // namespace portable
