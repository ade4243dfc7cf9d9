// SPDX-License-Identifier: MIT
#pragma once

#include <QColor>
#include <QPoint>
#include <QString>
#include <opencv2/core.hpp>

namespace portable {

/// The text that captures are stamped with. Any values do no harm.
struct Watermark
{
    bool isOn = false;
    QString text;
    int opacity = 100; ///< Percent.
    QString family; ///< Of the font; empty, or one that isn't there: the usual one.
    int points = 12; ///< Size of the font, at the resolution of the picture.
    QColor color{Qt::red};
    /// Of the text's top left corner; negative: its distance from the right or bottom edge.
    QPoint position{20, 20};
};

/**
 * Writes the watermark on an 8-bit BGR picture, in lines as its width asks for; text that leaves
 * the picture is moved into it, and cut off where it is larger. Needs a QGuiApplication, for the
 * fonts. \param dpi  of the picture, vertically
 */
void stamp(cv::Mat &picture, const Watermark &watermark, int dpi);

} // namespace portable
