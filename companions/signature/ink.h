// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QColor>
#include <QImage>
#include <QPointF>
#include <QSizeF>
#include <QVector>

QT_FORWARD_DECLARE_CLASS(QPainter)

/// Where the pen was at a moment.
struct InkPoint
{
    QPointF at; ///< 0..1 of the pad's width and height, from its upper left corner
    double seconds = 0; ///< since any fixed moment
    double pressure = -1; ///< 0..1; negative from a pen that does not tell
};

/// Part of a stroke that is drawn with one width, round at its ends and corners.
struct InkLine
{
    double width;
    QVector<QPointF> points; ///< at least one; one alone is a dot
};

/**
 * A signature: what was drawn on the pad, and how it looks. The screen, the picture and the PDF
 * all draw the same lines.
 */
class Ink
{
public:
    using Stroke = QVector<InkPoint>;

    static constexpr int maxPoints = 20000; ///< a pen writes some 100 a second
    static const QColor color;

    /// Begins a stroke. Points beyond `maxPoints` are dropped.
    void begin(const InkPoint &point);
    /// Goes on with the stroke begun last.
    void add(const InkPoint &point);
    void clear();

    const QVector<Stroke> &strokes() const { return m_strokes; }

    /// Whether there is enough to be a signature: more than a dot that a sleeve made.
    bool isSignature(double aspect) const;

    /// The lines of all strokes on an area of a size, in its units; y points downwards.
    QVector<InkLine> lines(const QSizeF &area) const;
    /// Those of one stroke. The faster the pen, or the lighter its pressure, the thinner.
    static QVector<InkLine> lines(const Stroke &stroke, const QSizeF &area);

    /// The signature on a transparent ground, in pixels.
    QImage image(const QSize &size) const;

    /**
     * As a strokes file holds it: a JSON list of strokes, each a list of points [x, y],
     * [x, y, seconds] or [x, y, seconds, pressure]. Without a time a point is 10 ms after the one
     * before.
     */
    QByteArray toJson() const;
    /// \throws QString  what is wrong with the text
    static Ink fromJson(const QByteArray &json);

private:
    QVector<Stroke> m_strokes;
    int m_points = 0;
};

/// Draws lines with a painter's current coordinates.
void drawInk(QPainter *painter, const QVector<InkLine> &lines);
