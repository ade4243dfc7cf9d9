// SPDX-License-Identifier: MIT
#pragma once

#include <QImage>
#include <QRectF>
#include <QString>
#include <QTime>
#include <opencv2/core.hpp>

class QPainter;

namespace portable {

/// What the barcodes on the scene's page say, for whoever reads them back.
QString sceneQrText();
QString sceneCode128Text();

/// The page of the scene in its own units; an A4 sheet lying on its side.
constexpr QRectF scenePage{0, 0, 1400, 990};

/// Paints the printed page (form, text, photo, QR code and Code 128) into scenePage.
void paintScenePage(QPainter &painter);

/**
 * A desk seen from above, with a printed page lying a little askew, a pen and a ticking clock: what
 * a document camera shows where there is none.
 *
 * Everything but the hands of the clock is painted once, in the constructor, which needs a
 * QGuiApplication for its fonts. Afterwards an object doesn't change.
 */
class TestScene
{
public:
    /// \param size  in pixels; the scene is laid out for 16:9 and shows more desk in other shapes
    explicit TestScene(const cv::Size &size);

    /// The scene with a clock without hands, 8-bit BGR.
    const cv::Mat &background() const { return m_background; }

    /// The only part of the picture that changes.
    const cv::Rect &clockArea() const { return m_clockArea; }

    /// Paints the clock with its hands at `time` over whatever clock `frame` shows.
    void drawClock(cv::Mat &frame, const QTime &time) const;

private:
    cv::Mat m_background;
    cv::Rect m_clockArea;
    QImage m_clockFace; // clockArea without hands
};

} // namespace portable
