#include "display/RowHeaderView.h"

#include "display/DisplayView.h"
#include "options/Parameters.h"
#include "streams/Axis.h"

#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

#include <cmath>

namespace quorval {

RowHeaderView::RowHeaderView(QWidget *parent) : ScreenView(parent)
{
    setCursor(Qt::SizeVerCursor);
    setFixedWidth(60);
}

void RowHeaderView::paint(QPainter &painter, QSizeF size)
{
    painter.fillRect(QRectF(QPointF(0, 0), size), kDarkGrey);
    if (!setup() || dataView->canvasHeight <= 0.0 || dataView->pixelHeight <= 0.0)
        return;
    lastWidth = hView->canvasWidth;
    shiftUp = std::max(0.0, size.height() - dataView->canvasHeight);
    if (viewType == ViewType::Composite)
        paintKeyboard(painter, size);
    else
        paintValueLabels(painter, size);
}

void RowHeaderView::paintKeyboard(QPainter &painter, QSizeF size)
{
    const DataView &v = *dataView;
    const double width = size.width();
    const double height = size.height();
    const double canvasHeight = v.canvasHeight;
    // Height of a note above the canvas's bottom edge, and the toolkit's y of one in the strip.
    auto canvasUp = [&](double note) { return (note - v.bottomY) / v.pixelHeight; };
    auto y = [&](double note) { return height - (canvasUp(note) + shiftUp); };
    auto onCanvas = [&](double up) { return up >= 0.0 && up < canvasHeight; };
    // A rectangle given by its lower-left corner in heights above the strip's bottom.
    auto rectUp = [&](double x, double bottom, double w, double h) {
        return QRectF(x, height - bottom - h, w, h);
    };

    painter.fillRect(rectUp(0.0, shiftUp, width, canvasHeight), Qt::white);
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    const double dotNote = 62.0 + (whiteKeySpacings[4] + whiteKeySpacings[5]) / 2.0;
    if (onCanvas(canvasUp(dotNote))) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(kDarkGreen);
        painter.drawEllipse(QRectF(0.7 * width - 2.0, y(dotNote) - 4.0, 8.0, 8.0));
    }

    const QString labelling = Parameters::shared().pianoKeyLabelling();
    const bool numbers = labelling == QLatin1String("Numbers");
    const bool noText = labelling == QLatin1String("None") || labelling.isEmpty();
    const double labelX = std::trunc(0.7 * width - 4.0) - (numbers ? 2.0 : 0.0);
    painter.setFont(labelFont(11));
    const double blackWidth = 0.6 * width - 3.0;
    for (auto base = static_cast<std::int64_t>(12 * std::trunc((v.bottomY - 1.5) / 12.0) + 2);
         base < static_cast<std::int64_t>(std::trunc(v.topY)); base += 12) {
        const auto b = static_cast<double>(base);
        for (std::size_t i = 0; i < 7; ++i) {
            const double low = b + whiteKeySpacings[i];
            const double high = b + whiteKeySpacings[i + 1];
            if (onCanvas(canvasUp(high))) {
                // The key's top edge, and its rounded right end when its bottom is in view.
                QPainterPath outline;
                const double yHigh = y(high);
                const double yLow = y(low);
                outline.moveTo(0.0, yHigh);
                outline.lineTo(width - 6.0, yHigh);
                if (canvasUp(low) + shiftUp >= 0.0) {
                    outline.arcTo(QRectF(width - 10.0, yHigh, 8.0, 8.0), 90.0, -90.0);
                    outline.lineTo(width - 2.0, yLow - 4.0);
                    outline.arcTo(QRectF(width - 10.0, yLow - 8.0, 8.0, 8.0), 0.0, -90.0);
                }
                painter.strokePath(outline, QPen(Qt::black, 1.0));
            }
            const double middle = (canvasUp(low) + canvasUp(high)) / 2.0;
            // The A carrying the dot goes unlabelled.
            if (noText || (base == 62 && i == 4) || !onCanvas(middle))
                continue;
            const QString text = numbers ? QString::number(base + whiteKeyNoteIncrements[i])
                                         : QString::fromLatin1(whiteKeyLabels[(i + 3) % 7]);
            painter.setPen(Qt::black);
            painter.drawText(
                QRectF(labelX, height - (middle + shiftUp) - 7.0, width - labelX, 14.0),
                Qt::AlignLeft | Qt::AlignVCenter, text);
        }
        painter.setPen(Qt::NoPen);
        painter.setBrush(Qt::black);
        for (const double spacing : blackKeySpacings) {
            const double centre = b + spacing;
            const double top = canvasUp(centre + blackKeyHeightHalf) + shiftUp;
            const double bottom = canvasUp(centre - blackKeyHeightHalf) + shiftUp;
            if (!onCanvas((top + bottom) / 2.0 - shiftUp))
                continue;
            const double keyHeight = top - bottom;
            painter.fillRect(rectUp(0.0, bottom, blackWidth - 4.0, keyHeight), Qt::black);
            painter.fillRect(rectUp(0.0, bottom + 4.0, blackWidth, keyHeight - 8.0), Qt::black);
            painter.drawEllipse(rectUp(blackWidth - 8.0, bottom, 8.0, 8.0));
            painter.drawEllipse(rectUp(blackWidth - 8.0, top - 8.0, 8.0, 8.0));
        }
    }
    painter.restore();
}

void RowHeaderView::paintValueLabels(QPainter &painter, QSizeF size)
{
    const DataView &v = *dataView;
    const double step = plainGridSize(v.pixelHeight * v.yGridSize);
    if (step <= 0.0)
        return;
    painter.setFont(labelFont(11));
    painter.setPen(Qt::white);
    const double bottom = size.height() - shiftUp;
    for (auto i = static_cast<std::int64_t>(std::trunc(v.bottomY / step));; ++i) {
        const double value = static_cast<double>(i) * step;
        if (value > v.topY)
            break;
        const double up = (value - v.bottomY) / v.pixelHeight;
        if (up < 0.0 || up > v.canvasHeight)
            continue;
        const double y = bottom - up;
        painter.drawLine(QLineF(size.width() - 4.0, y, size.width(), y));
        // Kept inside the strip at the canvas's top and bottom edges.
        const double top = std::clamp(y - 7.0, 0.0, bottom - 14.0);
        painter.drawText(QRectF(0.0, top, size.width() - 6.0, 14.0),
                         Qt::AlignRight | Qt::AlignVCenter,
                         QString::fromStdString(axisLabel(value, step)));
    }
}

void RowHeaderView::mousePressEvent(QMouseEvent *event)
{
    lastMouseY = event->position().y();
}

void RowHeaderView::mouseMoveEvent(QMouseEvent *event)
{
    if (!(event->buttons() & Qt::LeftButton) || !setup())
        return;
    const double y = event->position().y();
    // The notes follow the mouse: dragging up brings lower notes into view.
    dataView->scrollY((y - lastMouseY) * dataView->pixelHeight);
    lastMouseY = y;
    HView::needsScrollerUpdate = true;
    if (displayView)
        displayView->redrawAll();
    update();
}

} // namespace quorval
