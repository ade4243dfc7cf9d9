// SPDX-License-Identifier: MIT
#pragma once

#include <QImage>
#include <QTime>
#include <opencv2/core.hpp>

namespace portable {

/**
 * A desk seen from above, with a slightly rotated printed sheet, a pen and a running clock: the
 * picture of a document camera on machines without one.
 *
 * The constructor paints everything except the clock's hands; its fonts need a QGuiApplication.
 * Used by one thread at a time.
 */
class TestScene
{
public:
    /// \param size  in pixels; the scene is laid out for 16:9 and shows more desk in other shapes
    explicit TestScene(const cv::Size &size);

    /// Replaces the sheet. \param page  from 1, the one that the constructor puts down; 0: no sheet
    void putSheet(int page);

    /// The scene without the clock's hands, 8-bit BGR. Changed by putSheet().
    const cv::Mat &background() const { return m_background; }

    /// The only part of the picture that changes: the clock face.
    const cv::Rect &clockArea() const { return m_clockArea; }

    /// Replaces the clock in `frame` by one that shows `time`.
    void drawClock(cv::Mat &frame, const QTime &time) const;

private:
    QImage m_desk; // without sheet and light
    cv::Mat m_background;
    cv::Rect m_clockArea;
    QImage m_clockFace; // clockArea() without hands
};

} // namespace portable
