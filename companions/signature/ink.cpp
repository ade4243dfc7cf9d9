// SPDX-License-Identifier: MIT
#include "companions/signature/ink.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QLineF>
#include <QPainter>

#include <algorithm>
#include <cmath>

namespace {

// Widths are fractions of the pad's height, speeds are pad heights per second.
constexpr double maxWidth = 0.030;
constexpr double minWidth = 0.011;
constexpr double fastPen = 4;
constexpr double widthStep = maxWidth / 48; // too fine to see
constexpr double minSignature = 0.3; // pad heights
constexpr double defaultInterval = 0.01; // seconds between points without a time

double distance(const InkPoint &a, const InkPoint &b, const QSizeF &area)
{
    return std::hypot((b.at.x() - a.at.x()) * area.width(), (b.at.y() - a.at.y()) * area.height());
}

/// The width at each point, smoothed like that of a brush, which spreads slowly.
QVector<double> widths(const Ink::Stroke &stroke, const QSizeF &area)
{
    QVector<double> widths;
    double speed = 0;
    double width = 0;
    for (int i = 0; i < stroke.size(); ++i) {
        const InkPoint &point = stroke[i];
        if (i > 0) {
            const double seconds = std::max(point.seconds - stroke[i - 1].seconds, 0.001);
            const double now = distance(stroke[i - 1], point, area) / area.height() / seconds;
            speed = 0.6 * speed + 0.4 * now;
        }
        const double share =
            point.pressure >= 0 ? std::min(point.pressure * 1.2, 1.0) : std::exp(-speed / fastPen);
        const double wanted = minWidth + (maxWidth - minWidth) * share;
        width = i == 0 ? 0.7 * wanted : 0.75 * width + 0.25 * wanted;
        widths << width * area.height();
    }
    return widths;
}

/// Collects the samples of a stroke and starts a new line where the width changes.
class LineMaker
{
public:
    explicit LineMaker(double step)
        : m_step(step)
    {
    }

    void add(const QPointF &point, double width)
    {
        const double rounded = std::max(std::round(width / m_step), 1.0) * m_step;
        if (m_lines.isEmpty()) {
            m_lines << InkLine{rounded, {point}};
        } else if (m_lines.last().width == rounded) {
            m_lines.last().points << point;
        } else {
            m_lines << InkLine{rounded, {m_lines.last().points.last(), point}};
        }
    }

    const QVector<InkLine> &lines() const { return m_lines; }

private:
    const double m_step;
    QVector<InkLine> m_lines;
};

InkPoint pointFromJson(const QJsonArray &numbers, double secondsBefore)
{
    if (numbers.size() < 2 || numbers.size() > 4) {
        throw QStringLiteral("a point has 2 to 4 numbers");
    }
    for (const QJsonValue &number : numbers) {
        if (!number.isDouble()) {
            throw QStringLiteral("a point holds something other than numbers");
        }
    }
    InkPoint point;
    point.at = QPointF(numbers[0].toDouble(), numbers[1].toDouble());
    if (!QRectF(0, 0, 1, 1).contains(point.at)) {
        throw QStringLiteral("a point is not on the pad: x and y go from 0 to 1");
    }
    point.seconds = numbers.size() > 2 ? numbers[2].toDouble() : secondsBefore + defaultInterval;
    if (point.seconds < secondsBefore || point.seconds > 24 * 3600) {
        throw QStringLiteral("a point's time is before the previous point's, or above a day");
    }
    if (numbers.size() > 3) {
        point.pressure = std::clamp(numbers[3].toDouble(), 0.0, 1.0);
    }
    return point;
}

} // namespace

const QColor Ink::color(13, 20, 56);

void Ink::begin(const InkPoint &point)
{
    if (m_points < maxPoints) {
        m_strokes << Stroke();
    }
    add(point);
}

void Ink::add(const InkPoint &point)
{
    if (m_points >= maxPoints || m_strokes.isEmpty()) {
        return;
    }
    m_strokes.last() << point;
    ++m_points;
}

void Ink::clear()
{
    *this = Ink();
}

bool Ink::isSignature(double aspect) const
{
    double length = 0;
    for (const Stroke &stroke : m_strokes) {
        for (int i = 1; i < stroke.size(); ++i) {
            length += distance(stroke[i - 1], stroke[i], QSizeF(aspect, 1));
        }
    }
    return length >= minSignature;
}

QVector<InkLine> Ink::lines(const QSizeF &area) const
{
    QVector<InkLine> all;
    for (const Stroke &stroke : m_strokes) {
        all += lines(stroke, area);
    }
    return all;
}

/// The pen's points are the control points of a chain of quadratic curves through their midpoints.
QVector<InkLine> Ink::lines(const Stroke &stroke, const QSizeF &area)
{
    if (stroke.isEmpty()) {
        return {};
    }
    QVector<QPointF> points;
    for (const InkPoint &point : stroke) {
        points << QPointF(point.at.x() * area.width(), point.at.y() * area.height());
    }
    const QVector<double> width = widths(stroke, area);
    LineMaker maker(widthStep * area.height());
    maker.add(points[0], width[0]);
    const int last = points.size() - 1;
    for (int i = 0; i < last; ++i) {
        const QPointF from = i == 0 ? points[0] : (points[i - 1] + points[i]) / 2;
        const double fromWidth = i == 0 ? width[0] : (width[i - 1] + width[i]) / 2;
        const QPointF to = (points[i] + points[i + 1]) / 2;
        const double toWidth = (width[i] + width[i + 1]) / 2;
        const double length = QLineF(from, points[i]).length() + QLineF(points[i], to).length();
        const int steps = std::clamp(int(length / (0.012 * area.height())), 1, 100);
        for (int step = 1; step <= steps; ++step) {
            const double t = double(step) / steps;
            maker.add((1 - t) * (1 - t) * from + 2 * t * (1 - t) * points[i] + t * t * to,
                      fromWidth + t * (toWidth - fromWidth));
        }
    }
    if (last > 0) {
        maker.add(points[last], width[last]);
    }
    return maker.lines();
}

QImage Ink::image(const QSize &size) const
{
    QImage image(size, QImage::Format_ARGB32);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    drawInk(&painter, lines(size));
    return image;
}

QByteArray Ink::toJson() const
{
    QJsonArray strokes;
    for (const Stroke &stroke : m_strokes) {
        QJsonArray points;
        for (const InkPoint &point : stroke) {
            QJsonArray numbers{point.at.x(), point.at.y(), point.seconds};
            if (point.pressure >= 0) {
                numbers << point.pressure;
            }
            points << numbers;
        }
        strokes << points;
    }
    return QJsonDocument(strokes).toJson(QJsonDocument::Compact);
}

Ink Ink::fromJson(const QByteArray &json)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (!document.isArray()) {
        throw QStringLiteral("not a JSON list of strokes: ") + error.errorString();
    }
    Ink ink;
    double seconds = 0;
    const QJsonArray strokes = document.array();
    for (const QJsonValue &stroke : strokes) {
        const QJsonArray points = stroke.toArray();
        if (points.isEmpty()) {
            throw QStringLiteral("a stroke is not a list of points");
        }
        ink.m_strokes << Stroke();
        for (const QJsonValue &point : points) {
            ink.add(pointFromJson(point.toArray(), seconds));
            seconds = ink.m_strokes.last().last().seconds;
        }
    }
    if (ink.m_points >= maxPoints) {
        throw QStringLiteral("%1 points or more").arg(maxPoints);
    }
    return ink;
}

void drawInk(QPainter *painter, const QVector<InkLine> &lines)
{
    for (const InkLine &line : lines) {
        painter->setPen(QPen(Ink::color, std::max(line.width, 1.0), Qt::SolidLine, Qt::RoundCap,
                             Qt::RoundJoin));
        if (line.points.size() == 1) {
            painter->drawPoint(line.points.first());
        } else {
            painter->drawPolyline(line.points.constData(), line.points.size());
        }
    }
}
