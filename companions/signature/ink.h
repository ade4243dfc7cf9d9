// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QColor>
#include <QImage>
#include <QPointF>
#include <QSizeF>
#include <QVector>

QT_FORWARD_DECLARE_CLASS(QPainter)

/// Position and pressure of the pen at a moment.
struct InkPoint
{
    QPointF at; ///< 0..1 of the pad's width and height, from its upper left corner
    double seconds = 0; ///< since any fixed moment
    double pressure = -1; ///< 0..1; negative if the pen does not report it
};

/// Part of a stroke drawn with one width, round at its ends and corners.
struct InkLine
{
    double width;
    QVector<QPointF> points; ///< at least one; a single one is a dot
};

/**
 * A signature: the strokes drawn on the pad, and the lines that represent them on the screen, in
 * the picture and in the PDF.
 */
class Ink
{
public:
    using Stroke = QVector<InkPoint>;

    static constexpr int maxPoints = 20000; ///< a pen reports about 100 a second
    static const QColor color;

    /// Starts a stroke. Points beyond `maxPoints` are dropped.
    void begin(const InkPoint &point);
    /// Continues the latest stroke.
    void add(const InkPoint &point);
    void clear();

    const QVector<Stroke> &strokes() const { return m_strokes; }

    /// Whether the strokes are long enough for a signature, unlike a dot that a sleeve made.
    bool isSignature(double aspect) const;

    /// The lines of all strokes, scaled to an area of this size; y points down.
    QVector<InkLine> lines(const QSizeF &area) const;
    /// The lines of one stroke: the faster the pen or the lighter its pressure, the thinner.
    static QVector<InkLine> lines(const Stroke &stroke, const QSizeF &area);

    /// The signature on a transparent background; size in pixels.
    QImage image(const QSize &size) const;

    /**
     * The text of a strokes file: a JSON list of strokes, each a list of points [x, y],
     * [x, y, seconds] or [x, y, seconds, pressure]. A point without a time is 10 ms after the
     * previous one.
     */
    QByteArray toJson() const;
    /// \throws QString  what is wrong with the text
    static Ink fromJson(const QByteArray &json);

private:
    QVector<Stroke> m_strokes;
    int m_points = 0;
};

/// Draws lines in the painter's current coordinates.
void drawInk(QPainter *painter, const QVector<InkLine> &lines);
