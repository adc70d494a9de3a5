#include "display/RowHeaderView.h"

#include "display/DisplayView.h"
#include "display/HeaderPainters.h"
#include "display/TracePainters.h"

#include <QMouseEvent>
#include <QPainter>

namespace quorval {

RowHeaderView::RowHeaderView(QWidget *parent) : ScreenView(parent)
{
    setCursor(Qt::SizeVerCursor);
    setFixedWidth(60);
}

void RowHeaderView::paint(QPainter &painter, QSizeF size)
{
    painter.fillRect(QRectF(QPointF(0, 0), size), kDarkGrey);
    if (!displayView)
        return;
    const TraceFeed::Frame &f = displayView->frame();
    const Geometry &g = f.geometry;
    if (!f.drawn || g.canvasHeight <= 0.0 || g.pixelHeight <= 0.0)
        return;
    if (f.viewType == ViewType::Composite)
        Keyboard::paint(painter, g, size, f.keyLabels, f.writtenKeyNames);
    else
        paintValueLabels(painter, g, size, f.valueStep);
}

void RowHeaderView::mousePressEvent(QMouseEvent *event)
{
    lastMouseY = event->position().y();
}

void RowHeaderView::mouseMoveEvent(QMouseEvent *event)
{
    if (!(event->buttons() & Qt::LeftButton) || !bindAxes())
        return;
    const double y = event->position().y();
    // The notes follow the mouse: dragging up brings lower notes into view.
    dataView->scrollY((y - lastMouseY) * dataView->pixelHeight);
    lastMouseY = y;
    HView::needsScrollerUpdate = true;
    displayView->redrawAll();
}

} // namespace quorval
