// SPDX-License-Identifier: MIT
#pragma once

#include "companions/signature/ink.h"

#include <QPoint>
#include <QScrollArea>

/**
 * Shows a page of the document with the place of the signature and the ink drawn there. The page is
 * scaled to fit, or enlarged and dragged by finger or mouse.
 */
class PageView : public QScrollArea
{
    Q_OBJECT

public:
    explicit PageView(QWidget *parent = nullptr);
    ~PageView() override;

    /// Shows a page. A null image: it is still being rendered, the previous page stays until then.
    void setPage(const QImage &image);

    /**
     * Marks the place of the signature. \param place  0..1 of the page's width and height, from its
     * upper left corner; a null rectangle if it is not on this page
     */
    void setPlace(const QRectF &place);
    void setInk(const Ink &ink);

    bool isEnlarged() const { return m_enlarged; }
    /// Enlarges the page, keeping the place of the signature visible, or fits it again.
    void setEnlarged(bool enlarged);

protected:
    void resizeEvent(QResizeEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;

private:
    class Canvas;

    void updateLayout();

    Canvas *m_canvas; ///< owned by the scroll area
    bool m_enlarged = false;
    QPoint m_draggedFrom; ///< in screen coordinates
};
