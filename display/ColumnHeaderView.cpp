#include "display/ColumnHeaderView.h"

#include "display/DisplayView.h"
#include "display/HeaderPainters.h"
#include "display/TracePainters.h"

#include <QMouseEvent>
#include <QPainter>

namespace quorval {

ColumnHeaderView::ColumnHeaderView(QWidget *parent) : ScreenView(parent)
{
    setCursor(Qt::SizeHorCursor);
    setFixedHeight(24);
}

void ColumnHeaderView::paint(QPainter &painter, QSizeF size)
{
    labelRects.clear();
    painter.fillRect(QRectF(QPointF(0, 0), size), kDarkGrey);
    if (!displayView || !displayView->frame().drawn)
        return;
    const TraceFeed::Frame &f = displayView->frame();
    labelRects =
        Ruler::paint(painter, f.geometry, size, f.acrossSpacing, f.viewType == ViewType::Spectrum);
}

void ColumnHeaderView::mousePressEvent(QMouseEvent *event)
{
    lastMouseX = event->position().x();
}

void ColumnHeaderView::mouseMoveEvent(QMouseEvent *event)
{
    if (!(event->buttons() & Qt::LeftButton) || !bindAxes() || !displayView)
        return;
    const double x = event->position().x();
    // The content follows the mouse.
    hView->setLeftTime(hView->leftTime - (x - lastMouseX) * hView->pixelWidth,
                       displayView->refreshExtent(), true);
    lastMouseX = x;
    displayView->redrawAll();
}

} // namespace quorval
