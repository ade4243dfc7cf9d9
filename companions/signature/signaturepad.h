// SPDX-License-Identifier: MIT
#pragma once

#include "companions/signature/ink.h"

#include <QElapsedTimer>
#include <QPixmap>
#include <QWidget>

/**
 * The pad to sign on with a pressure-sensitive pen, a finger or the mouse: whichever touches it
 * first draws until lifted, the others are ignored meanwhile. Keeps its aspect ratio within the
 * available space.
 */
class SignaturePad : public QWidget
{
    Q_OBJECT

public:
    /// \param aspect  width : height of the signing area
    explicit SignaturePad(double aspect, QWidget *parent = nullptr);

    const Ink &ink() const { return m_ink; }
    double aspect() const { return m_aspect; }
    bool holdsSignature() const { return m_ink.isSignature(m_aspect); }

    /// Moves the pen of a script.
    void penDown(const InkPoint &point);
    void penMove(const InkPoint &point);
    void penUp();

    void clear();

Q_SIGNALS:
    /// The ink has changed.
    void changed();

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    bool event(QEvent *event) override;

private:
    enum class Pen { Nobody, Mouse, Finger, Stylus, Script };

    QRectF area() const;
    void down(Pen pen, const QPointF &position, double pressure = -1);
    void move(Pen pen, const QPointF &position, double pressure = -1);
    void up(Pen pen);
    InkPoint pointAt(const QPointF &position, double pressure) const;
    bool touch(class QTouchEvent *event);
    void drawFinished();
    void paintBackground(QPainter *painter) const;

    const double m_aspect;
    Ink m_ink;
    Pen m_pen = Pen::Nobody;
    int m_finger = 0; ///< id of the touch point that draws
    QElapsedTimer m_clock;
    QPixmap m_finished; ///< all strokes except the one being drawn
};
