// SPDX-License-Identifier: MIT
#include "portable/camera/testscene.h"

#include "portable/camera/testsheet.h"

#include <QPainter>
#include <QPainterPath>
#include <QtMath>
#include <opencv2/imgproc.hpp>

namespace portable {

namespace {

// The layout, in the coordinates of a 1920 x 1080 picture.
constexpr QRectF scene{0, 0, 1920, 1080};
constexpr QPointF sheetCenter{745, 540};
constexpr double sheetWidth = 1270;
constexpr double sheetAngle = 3; // degrees clockwise
constexpr double farEdge = 0.985; // the upper edge is a little farther from the camera
constexpr QPointF clockCenter{1652, 300};
constexpr double clockRadius = 180; // with its rim
constexpr double faceRadius = 156;
constexpr QPointF penCenter{1660, 770};
constexpr double penAngle = 14;

/// Maps the layout to a picture of this size: as large as fits, centered.
QTransform layoutTo(const cv::Size &size)
{
    const double scale = qMin(size.width / scene.width(), size.height / scene.height());
    return QTransform::fromScale(scale, scale)
        * QTransform::fromTranslate((size.width - scale * scene.width()) / 2,
                                    (size.height - scale * scene.height()) / 2);
}

/// Maps the sheet to the layout: rotated, with a little perspective.
QTransform sheetToLayout()
{
    const double height = sheetWidth * testSheetArea.height() / testSheetArea.width();
    const QPolygonF trapezium{{QPointF(-farEdge * sheetWidth / 2, -height / 2),
                               QPointF(farEdge * sheetWidth / 2, -height / 2),
                               QPointF(sheetWidth / 2, height / 2),
                               QPointF(-sheetWidth / 2, height / 2)}};
    const QTransform turn =
        QTransform().translate(sheetCenter.x(), sheetCenter.y()).rotate(sheetAngle);
    QPolygonF sheet(testSheetArea);
    sheet.removeLast(); // the polygon of a rectangle repeats its first point
    QTransform result;
    QTransform::quadToQuad(sheet, turn.map(trapezium), result);
    return result;
}

QTransform penToLayout()
{
    return QTransform().translate(penCenter.x(), penCenter.y()).rotate(penAngle);
}

/// The pen's outline: tip downwards, around the origin.
QPainterPath penOutline()
{
    QPainterPath pen(QPointF(0, 215));
    pen.lineTo(-11, 160);
    pen.lineTo(-13, -190);
    pen.quadTo(0, -215, 13, -190);
    pen.lineTo(11, 160);
    pen.closeSubpath();
    return pen;
}

/// Smooth noise from -1 to 1, interpolated between random cells of the given size in pixels.
cv::Mat stretchedNoise(const cv::Size &size, double cellWidth, double cellHeight, cv::RNG &random)
{
    cv::Mat cells(qMax(2, qCeil(size.height / cellHeight)), qMax(2, qCeil(size.width / cellWidth)),
                  CV_32F);
    random.fill(cells, cv::RNG::UNIFORM, -1.0, 1.0);
    cv::Mat noise;
    cv::resize(cells, noise, size, 0, 0, cv::INTER_CUBIC);
    return noise;
}

/// A wooden desk top: boards across the picture, with grain along them.
QImage paintDesk(const cv::Size &size, double scale)
{
    cv::RNG random(1818); // any fixed seed: the desk always looks the same
    const cv::Mat grain = 0.5 * stretchedNoise(size, 420 * scale, 3 * scale, random)
        + 0.8 * stretchedNoise(size, 900 * scale, 11 * scale, random)
        + 0.9 * stretchedNoise(size, 1300 * scale, 46 * scale, random);
    const double boardHeight = 216 * scale;
    const double middle = size.height / 2.0; // where the boards start, whatever the height
    QImage desk(size.width, size.height, QImage::Format_RGB32);
    for (int y = 0; y < size.height; ++y) {
        const double board = (y - middle) / boardHeight + 100.5;
        const double number = std::floor(board);
        const double tone = 5 * qSin(41 * number); // adjacent boards differ
        const double toSeam = (board - number) * boardHeight / scale;
        const double seam = toSeam < 3 ? -38 * (1 - toSeam / 3) : 0;
        const auto *grainLine = grain.ptr<float>(y);
        auto *line = reinterpret_cast<QRgb *>(desk.scanLine(y));
        for (int x = 0; x < size.width; ++x) {
            const double light = 9 * double(grainLine[x]) + tone + seam;
            line[x] = qRgb(int(158 + light), int(122 + 0.95 * light), int(88 + 0.85 * light));
        }
    }
    return desk;
}

/// Paints the shadow of something on the desk; lengths are those of the layout.
void paintShadow(QImage &desk, const QTransform &layout, const QPainterPath &outline, double offset,
                 double blur, int strength)
{
    QImage mask(desk.size(), QImage::Format_Grayscale8);
    mask.fill(Qt::black);
    QPainter painter(&mask);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setTransform(layout);
    painter.translate(offset, offset);
    painter.fillPath(outline, QColor(strength, strength, strength));
    painter.end();
    cv::Mat pixels(mask.height(), mask.width(), CV_8UC1, mask.bits(), size_t(mask.bytesPerLine()));
    cv::GaussianBlur(pixels, pixels, cv::Size(), blur * layout.m11());
    QImage black(desk.size(), QImage::Format_ARGB32_Premultiplied);
    black.fill(QColor(24, 14, 6));
    black.setAlphaChannel(mask);
    QPainter(&desk).drawImage(0, 0, black);
}

void paintPen(QPainter &painter)
{
    painter.save();
    painter.setTransform(penToLayout(), true);
    QLinearGradient body(-13, 0, 13, 0);
    body.setColorAt(0.0, QColor(18, 30, 60));
    body.setColorAt(0.35, QColor(92, 118, 170));
    body.setColorAt(0.5, QColor(40, 62, 112));
    body.setColorAt(1.0, QColor(10, 18, 40));
    painter.fillPath(penOutline(), body);
    QLinearGradient metal(-13, 0, 13, 0);
    metal.setColorAt(0.0, QColor(110, 110, 112));
    metal.setColorAt(0.4, QColor(240, 240, 240));
    metal.setColorAt(1.0, QColor(95, 95, 98));
    QPainterPath tip(QPointF(0, 215));
    tip.lineTo(-11, 160);
    tip.lineTo(11, 160);
    tip.closeSubpath();
    painter.fillPath(tip, metal);
    painter.fillRect(QRectF(-13, -60, 26, 9), metal);
    painter.setPen(Qt::NoPen);
    painter.setBrush(metal);
    painter.drawRoundedRect(QRectF(-4, -185, 7, 120), 3, 3);
    painter.restore();
}

/// The clock without hands, around the origin.
void paintClock(QPainter &painter)
{
    QConicalGradient rim(0, 0, 45);
    for (int i = 0; i <= 4; ++i) {
        rim.setColorAt(i / 4.0, i % 2 == 0 ? QColor(96, 100, 106) : QColor(226, 229, 232));
    }
    painter.setPen(Qt::NoPen);
    painter.setBrush(rim);
    painter.drawEllipse(QPointF(), clockRadius, clockRadius);
    painter.setBrush(QColor(52, 55, 60));
    painter.drawEllipse(QPointF(), faceRadius + 5, faceRadius + 5);
    QRadialGradient face(QPointF(-40, -50), 2 * faceRadius);
    face.setColorAt(0, QColor(253, 253, 251));
    face.setColorAt(1, QColor(214, 216, 218));
    painter.setBrush(face);
    painter.drawEllipse(QPointF(), faceRadius, faceRadius);

    for (int minute = 0; minute < 60; ++minute) {
        const bool hour = minute % 5 == 0;
        painter.save();
        painter.rotate(6 * minute);
        painter.setPen(QPen(QColor(45, 48, 54), hour ? 5 : 2, Qt::SolidLine, Qt::FlatCap));
        painter.drawLine(QPointF(0, -faceRadius + 10), QPointF(0, -faceRadius + (hour ? 28 : 20)));
        painter.restore();
    }
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setStyleHint(QFont::SansSerif);
    font.setPixelSize(30);
    painter.setFont(font);
    painter.setPen(QColor(45, 48, 54));
    for (int hour = 1; hour <= 12; ++hour) {
        const double angle = qDegreesToRadians(30.0 * hour);
        const QPointF place = 108 * QPointF(qSin(angle), -qCos(angle));
        painter.drawText(QRectF(place - QPointF(30, 30), QSizeF(60, 60)), Qt::AlignCenter,
                         QString::number(hour));
    }
}

/// The light of a lamp at the upper left, darker towards the opposite corner.
void paintLight(QImage &picture)
{
    QPainter painter(&picture);
    QRadialGradient light(QPointF(0.34 * picture.width(), 0.28 * picture.height()),
                          0.95 * picture.width());
    light.setColorAt(0.0, QColor(255, 254, 250));
    light.setColorAt(0.5, QColor(240, 237, 231));
    light.setColorAt(1.0, QColor(178, 172, 164));
    painter.setCompositionMode(QPainter::CompositionMode_Multiply);
    painter.fillRect(picture.rect(), light);
}

void paintHand(QPainter &painter, double degrees, double length, double width, const QColor &color)
{
    painter.save();
    painter.rotate(degrees);
    painter.setPen(QPen(color, width, Qt::SolidLine, Qt::RoundCap));
    painter.drawLine(QPointF(0, 0.18 * length), QPointF(0, -length));
    painter.restore();
}

/// An RGB32 image as an OpenCV matrix that shares its memory: 8-bit BGRA.
cv::Mat bgraView(const QImage &image)
{
    return cv::Mat(image.height(), image.width(), CV_8UC4, const_cast<uchar *>(image.constBits()),
                   size_t(image.bytesPerLine()));
}

} // namespace

TestScene::TestScene(const cv::Size &size)
{
    const QTransform layout = layoutTo(size);
    m_desk = paintDesk(size, layout.m11());
    QPainterPath clock;
    clock.addEllipse(clockCenter, clockRadius, clockRadius);
    paintShadow(m_desk, layout, clock, 20, 16, 150);
    paintShadow(m_desk, layout, penToLayout().map(penOutline()), 9, 5, 140);

    QPainter painter(&m_desk);
    painter.setRenderHints(QPainter::Antialiasing | QPainter::SmoothPixmapTransform);
    painter.setTransform(layout);
    paintPen(painter);
    painter.translate(clockCenter);
    paintClock(painter);
    painter.end();
    putSheet(1);
}

void TestScene::putSheet(int page)
{
    const QTransform layout = layoutTo({m_desk.width(), m_desk.height()});
    QImage picture = m_desk;
    if (page > 0) {
        QPainterPath sheet;
        sheet.addPolygon(sheetToLayout().map(QPolygonF(testSheetArea)));
        paintShadow(picture, layout, sheet, 3, 3, 120);
        paintShadow(picture, layout, sheet, 12, 16, 105);
        QPainter painter(&picture);
        painter.setRenderHints(QPainter::Antialiasing | QPainter::SmoothPixmapTransform);
        painter.setTransform(sheetToLayout() * layout);
        paintTestSheet(painter, page);
    }
    paintLight(picture);

    QRectF face(0, 0, 2 * faceRadius, 2 * faceRadius);
    face.moveCenter(clockCenter);
    const QRect area = layout.mapRect(face).toAlignedRect() & picture.rect();
    m_clockArea = cv::Rect(area.x(), area.y(), area.width(), area.height());
    m_clockFace = picture.copy(area);
    m_background.release(); // earlier frames may share it
    cv::cvtColor(bgraView(picture), m_background, cv::COLOR_BGRA2BGR);
}

void TestScene::drawClock(cv::Mat &frame, const QTime &time) const
{
    const double seconds = time.msecsSinceStartOfDay() / 1000.0;
    QImage clock = m_clockFace;
    QPainter painter(&clock); // detaches from m_clockFace
    painter.setRenderHint(QPainter::Antialiasing);
    const QTransform layout = layoutTo(frame.size());
    painter.setTransform(layout * QTransform::fromTranslate(-m_clockArea.x, -m_clockArea.y));
    painter.translate(clockCenter);
    paintHand(painter, seconds / 120, 78, 9, QColor(38, 40, 46)); // hours
    paintHand(painter, seconds / 10, 116, 6, QColor(38, 40, 46)); // minutes
    paintHand(painter, seconds * 6, 124, 2.5,
              QColor(200, 36, 30)); // sweeps, so that every frame differs
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(200, 36, 30));
    painter.drawEllipse(QPointF(), 7, 7);
    painter.end();
    cv::Mat target = frame(m_clockArea);
    cv::cvtColor(bgraView(clock), target, cv::COLOR_BGRA2BGR);
}

} // namespace portable
