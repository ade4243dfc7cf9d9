// SPDX-License-Identifier: MIT
#include "companions/signature/pageview.h"

#include "companions/signature/palette.h"

#include <QMouseEvent>
#include <QPainter>
#include <QScrollBar>

#include <algorithm>

class PageView::Canvas : public QWidget
{
public:
    QImage image;
    QRectF place;
    Ink ink;
    QPixmap scaled; ///< the image at this widget's size

protected:
    void paintEvent(QPaintEvent * /*event*/) override
    {
        QPainter painter(this);
        painter.fillRect(rect(), Qt::white);
        if (image.isNull()) {
            painter.setPen(palette::quiet);
            painter.drawText(rect(), Qt::AlignCenter, QStringLiteral("正在打开…  Opening…"));
            return;
        }
        const qreal ratio = devicePixelRatioF();
        if (scaled.size() != size() * ratio) {
            scaled = QPixmap::fromImage(
                image.scaled(size() * ratio, Qt::IgnoreAspectRatio, Qt::SmoothTransformation));
            scaled.setDevicePixelRatio(ratio);
        }
        painter.drawPixmap(0, 0, scaled);
        painter.setRenderHint(QPainter::Antialiasing);
        if (!place.isNull()) {
            paintPlace(&painter);
        }
        painter.setPen(QPen(palette::line, 1));
        painter.setBrush(Qt::NoBrush);
        painter.drawRect(rect().adjusted(0, 0, -1, -1));
    }

private:
    void paintPlace(QPainter *painter) const
    {
        const QRectF box(place.x() * width(), place.y() * height(), place.width() * width(),
                         place.height() * height());
        QColor fill = palette::accent;
        fill.setAlpha(28);
        painter->setPen(QPen(palette::accent, 1.5, Qt::DashLine));
        painter->setBrush(fill);
        painter->drawRoundedRect(box.adjusted(-3, -3, 3, 3), 3, 3);
        painter->save();
        painter->translate(box.topLeft());
        drawInk(painter, ink.lines(box.size()));
        painter->restore();
    }
};

PageView::PageView(QWidget *parent)
    : QScrollArea(parent)
    , m_canvas(new Canvas)
{
    setWidget(m_canvas);
    setAlignment(Qt::AlignCenter);
    setFrameShape(QFrame::NoFrame);
    setMinimumSize(160, 160);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff); // it is dragged
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
}

PageView::~PageView() = default;

void PageView::setPage(const QImage &image)
{
    if (!image.isNull() || m_canvas->image.isNull()) {
        m_canvas->image = image;
    }
    m_canvas->scaled = QPixmap();
    updateLayout();
    m_canvas->update();
}

void PageView::setPlace(const QRectF &place)
{
    m_canvas->place = place;
    m_canvas->update();
}

void PageView::setInk(const Ink &ink)
{
    m_canvas->ink = ink;
    m_canvas->update();
}

void PageView::setEnlarged(bool enlarged)
{
    m_enlarged = enlarged;
    updateLayout();
    if (m_canvas->place.isNull()) {
        return;
    }
    const QPointF center = m_canvas->place.center();
    ensureVisible(int(center.x() * m_canvas->width()), int(center.y() * m_canvas->height()),
                  viewport()->width() / 2, viewport()->height() / 2);
}

void PageView::updateLayout()
{
    const QSize room = viewport()->size();
    if (m_canvas->image.isNull()) {
        m_canvas->resize(room);
        return;
    }
    const QSize fitted = m_canvas->image.size().scaled(room, Qt::KeepAspectRatio);
    // Enlarged, it fills the width and is at least twice as large.
    const double factor =
        m_enlarged ? std::max(2.0, double(room.width()) / std::max(fitted.width(), 1)) : 1.0;
    m_canvas->resize(fitted * factor);
}

void PageView::resizeEvent(QResizeEvent *event)
{
    QScrollArea::resizeEvent(event);
    updateLayout();
}

// Fingers arrive as mouse events as well. (QScroller would leak something for each window.)
void PageView::mousePressEvent(QMouseEvent *event)
{
    m_draggedFrom = event->globalPos();
}

void PageView::mouseMoveEvent(QMouseEvent *event)
{
    const QPoint moved = event->globalPos() - m_draggedFrom;
    m_draggedFrom = event->globalPos();
    horizontalScrollBar()->setValue(horizontalScrollBar()->value() - moved.x());
    verticalScrollBar()->setValue(verticalScrollBar()->value() - moved.y());
}
