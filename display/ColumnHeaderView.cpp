#include "display/ColumnHeaderView.h"

#include "display/DisplayView.h"
#include "streams/Axis.h"

#include <QMouseEvent>
#include <QPainter>

#include <algorithm>
#include <cmath>

namespace quorval {

ColumnHeaderView::ColumnHeaderView(QWidget *parent) : ScreenView(parent)
{
    setCursor(Qt::SizeHorCursor);
    setFixedHeight(24);
}

void ColumnHeaderView::paint(QPainter &painter, QSizeF size)
{
    painter.fillRect(QRectF(QPointF(0, 0), size), kDarkGrey);
    if (!setup() || !dataView)
        return;
    lastHeight = dataView->canvasHeight;
    const HView &h = *hView;
    const double inc = gridSize(h.pixelWidth * h.xGridSize, h.functionOfTime);
    if (inc <= 0.0)
        return;
    painter.setFont(labelFont(11));
    painter.setPen(Qt::white);
    // Labels hang 4 points below the ruler's top edge.
    const double top = 4.0;
    for (auto i = static_cast<std::int64_t>(std::ceil(h.leftTime / inc));; ++i) {
        const double t = static_cast<double>(i) * inc;
        if (t >= h.leftTime + h.timeWidth)
            break;
        std::string text;
        double narrow = 0.0;
        if (viewType == ViewType::Spectrum) {
            text = axisLabel(t, inc);
        } else {
            const RulerLabel label = rulerLabel(t, inc);
            text = label.text;
            narrow = label.narrowChars;
        }
        const double width = charWidth * (static_cast<double>(text.size()) - narrow);
        const double centred = (t - h.leftTime) / h.pixelWidth - 0.5 * width;
        // A label at either edge is moved in to stay whole, unless it would then run into its
        // neighbour.
        const double x = std::clamp(centred, 2.0, size.width() - width - 2.0);
        if (x != centred && 1.5 * width + 6.0 > inc / h.pixelWidth)
            continue;
        painter.drawText(
            QRectF(x, top, charWidth * (static_cast<double>(text.size()) + 2.0), charHeight),
            Qt::AlignLeft | Qt::AlignVCenter, QString::fromStdString(text));
    }
}

void ColumnHeaderView::mousePressEvent(QMouseEvent *event)
{
    lastMouseX = event->position().x();
}

void ColumnHeaderView::mouseMoveEvent(QMouseEvent *event)
{
    if (!(event->buttons() & Qt::LeftButton) || !setup() || !displayView)
        return;
    const double x = event->position().x();
    // The content follows the mouse.
    hView->setLeftTime(hView->leftTime - (x - lastMouseX) * hView->pixelWidth,
                       displayView->refreshExtent(), true);
    lastMouseX = x;
    displayView->redrawAll();
}

} // namespace quorval
