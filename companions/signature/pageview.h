// SPDX-License-Identifier: MIT
#pragma once

#include "companions/signature/ink.h"

#include <QPoint>
#include <QScrollArea>

/**
 * A page of the document on the screen, with the place of the signature and the ink that comes to
 * lie there. Fits into its room, or is enlarged and dragged by finger or mouse.
 */
class PageView : public QScrollArea
{
    Q_OBJECT

public:
    explicit PageView(QWidget *parent = nullptr);
    ~PageView() override;

    /// Shows a page; a null picture stands for one that is being drawn.
    void setPage(const QImage &image);

    /**
     * Marks the place of the signature. \param place  0..1 of the page's width and height, from its
     * upper left corner; a null rectangle where this page has none
     */
    void setPlace(const QRectF &place);
    void setInk(const Ink &ink);

    bool isEnlarged() const { return m_enlarged; }
    /// Enlarges the page, with the place of the signature in sight, or fits it in again.
    void setEnlarged(bool enlarged);

protected:
    void resizeEvent(QResizeEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;

private:
    class Canvas;

    void layOut();

    Canvas *m_canvas; ///< owned by the scroll area
    bool m_enlarged = false;
    QPoint m_draggedFrom; ///< on the screen
};
