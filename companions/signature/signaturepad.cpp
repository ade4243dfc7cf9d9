// SPDX-License-Identifier: MIT
#include "companions/signature/signaturepad.h"

#include "companions/signature/palette.h"

#include <QMouseEvent>
#include <QPainter>
#include <QTabletEvent>
#include <QTouchEvent>

#include <algorithm>

SignaturePad::SignaturePad(double aspect, QWidget *parent)
    : QWidget(parent)
    , m_aspect(aspect)
{
    setAttribute(Qt::WA_AcceptTouchEvents);
    setCursor(Qt::CrossCursor);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    setMinimumSize(200, 60);
    m_clock.start();
}

QRectF SignaturePad::area() const
{
    const QRectF room = QRectF(rect()).adjusted(2, 2, -2, -2);
    const double width = std::min(room.width(), room.height() * m_aspect);
    QRectF area(0, 0, width, width / m_aspect);
    area.moveCenter(room.center());
    return area;
}

InkPoint SignaturePad::pointAt(const QPointF &position, double pressure) const
{
    const QRectF pad = area();
    const QPointF at((position.x() - pad.left()) / pad.width(),
                     (position.y() - pad.top()) / pad.height());
    return {QPointF(std::clamp(at.x(), 0.0, 1.0), std::clamp(at.y(), 0.0, 1.0)),
            double(m_clock.elapsed()) / 1000, pressure};
}

void SignaturePad::penDown(const InkPoint &point)
{
    if (m_pen != Pen::Nobody && m_pen != Pen::Script) {
        return;
    }
    m_pen = Pen::Script;
    m_ink.begin(point);
    update();
    Q_EMIT changed();
}

void SignaturePad::penMove(const InkPoint &point)
{
    if (m_pen != Pen::Script) {
        return;
    }
    m_ink.add(point);
    update();
    Q_EMIT changed();
}

void SignaturePad::penUp()
{
    up(Pen::Script);
}

void SignaturePad::clear()
{
    m_ink.clear();
    m_pen = Pen::Nobody;
    drawFinished();
    update();
    Q_EMIT changed();
}

void SignaturePad::down(Pen pen, const QPointF &position, double pressure)
{
    if (m_pen != Pen::Nobody || !area().contains(position)) {
        return;
    }
    m_pen = pen;
    m_ink.begin(pointAt(position, pressure));
    update();
    Q_EMIT changed();
}

void SignaturePad::move(Pen pen, const QPointF &position, double pressure)
{
    if (m_pen != pen) {
        return;
    }
    m_ink.add(pointAt(position, pressure));
    update();
    Q_EMIT changed();
}

void SignaturePad::up(Pen pen)
{
    if (m_pen != pen) {
        return;
    }
    m_pen = Pen::Nobody;
    drawFinished();
    update();
}

bool SignaturePad::event(QEvent *event)
{
    const auto mouse = [event] { return static_cast<QMouseEvent *>(event); };
    const auto tablet = [event] { return static_cast<QTabletEvent *>(event); };
    switch (event->type()) {
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonDblClick:
        if (mouse()->button() == Qt::LeftButton) {
            down(Pen::Mouse, mouse()->localPos());
        }
        return true;
    case QEvent::MouseMove:
        move(Pen::Mouse, mouse()->localPos());
        return true;
    case QEvent::MouseButtonRelease:
        if (mouse()->button() == Qt::LeftButton) {
            up(Pen::Mouse);
        }
        return true;
    case QEvent::TabletPress:
        down(Pen::Stylus, tablet()->posF(), tablet()->pressure());
        return true;
    case QEvent::TabletMove:
        move(Pen::Stylus, tablet()->posF(), tablet()->pressure());
        return true;
    case QEvent::TabletRelease:
        up(Pen::Stylus);
        return true;
    case QEvent::TouchBegin:
    case QEvent::TouchUpdate:
    case QEvent::TouchEnd:
    case QEvent::TouchCancel:
        return touch(static_cast<QTouchEvent *>(event));
    default:
        return QWidget::event(event);
    }
}

/// Only the first finger draws, not a palm that follows it.
bool SignaturePad::touch(QTouchEvent *event)
{
    if (event->type() == QEvent::TouchCancel) {
        up(Pen::Finger);
    }
    for (const QTouchEvent::TouchPoint &point : event->touchPoints()) {
        if (point.state() == Qt::TouchPointPressed && m_pen == Pen::Nobody) {
            m_finger = point.id();
            down(Pen::Finger, point.pos());
        } else if (point.id() == m_finger && point.state() == Qt::TouchPointMoved) {
            move(Pen::Finger, point.pos());
        } else if (point.id() == m_finger && point.state() == Qt::TouchPointReleased) {
            up(Pen::Finger);
        }
    }
    event->accept(); // otherwise Qt repeats it as mouse events
    return true;
}

void SignaturePad::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    drawFinished();
}

void SignaturePad::drawFinished()
{
    const qreal ratio = devicePixelRatioF();
    m_finished = QPixmap(size() * ratio);
    m_finished.setDevicePixelRatio(ratio);
    m_finished.fill(Qt::transparent);
    QPainter painter(&m_finished);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.translate(area().topLeft());
    const int finished = m_ink.strokes().size() - (m_pen == Pen::Nobody ? 0 : 1);
    for (int i = 0; i < finished; ++i) {
        drawInk(&painter, Ink::lines(m_ink.strokes()[i], area().size()));
    }
}

void SignaturePad::paintBackground(QPainter *painter) const
{
    const QRectF pad = area();
    painter->setPen(QPen(palette::line, 2));
    painter->setBrush(Qt::white);
    painter->drawRoundedRect(pad, 10, 10);
    const double baseline = pad.top() + pad.height() * 0.78;
    painter->setPen(QPen(palette::line, 2, Qt::DashLine));
    painter->drawLine(QPointF(pad.left() + pad.width() * 0.06, baseline),
                      QPointF(pad.right() - pad.width() * 0.06, baseline));
    if (!m_ink.strokes().isEmpty()) {
        return;
    }
    QFont large = font();
    large.setPixelSize(std::max(12, int(pad.height() * 0.16)));
    painter->setFont(large);
    painter->setPen(palette::placeholder);
    painter->drawText(pad.adjusted(0, 0, 0, -pad.height() * 0.28), Qt::AlignCenter,
                      QStringLiteral("请在此处签名"));
    large.setPixelSize(std::max(10, int(pad.height() * 0.08)));
    painter->setFont(large);
    painter->drawText(pad.adjusted(0, pad.height() * 0.28, 0, -pad.height() * 0.22),
                      Qt::AlignCenter, QStringLiteral("Please sign here"));
}

void SignaturePad::paintEvent(QPaintEvent * /*event*/)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    paintBackground(&painter);
    painter.drawPixmap(0, 0, m_finished);
    if (m_pen == Pen::Nobody || m_ink.strokes().isEmpty()) {
        return;
    }
    painter.translate(area().topLeft());
    drawInk(&painter, Ink::lines(m_ink.strokes().last(), area().size()));
}
