// SPDX-License-Identifier: MIT
#pragma once

#include <QColor>
#include <QPoint>
#include <QString>
#include <opencv2/core.hpp>

namespace portable {

/// The text stamped on captures. Every field value is safe.
struct Watermark
{
    bool isOn = false;
    QString text;
    int opacity = 100; ///< Percent.
    QString family; ///< Font family; the default one when empty or not installed.
    int points = 12; ///< Font size, at the resolution of the picture.
    QColor color{Qt::red};
    /// Of the text's top left corner in pixels; negative: distance of the text from the right or
    /// bottom edge.
    QPoint position{20, 20};
};

/**
 * A copy of an 8-bit BGR picture with the watermark on it, wrapped to its width. Text that would
 * leave the picture is moved into it, and clipped when it is larger. Needs a QGuiApplication for
 * the fonts.
 * \param dpi  vertical resolution of the picture
 * \return the picture itself, with shared pixels, when there is nothing to draw
 */
cv::Mat stamped(const cv::Mat &picture, const Watermark &watermark, int dpi);

} // namespace portable
