#include "display/ColumnHeaderView.h"

#include "display/DisplayView.h"
#include "streams/Axis.h"

#include <QFontMetricsF>
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

namespace {

constexpr double kLabelPoints = 11.0;
constexpr double kLabelGap = 8.0;   // least room between two labels, points
constexpr double kEdgeMargin = 2.0; // room at either end of the ruler, points

QString labelText(double value, double inc, bool spectrum)
{
    return QString::fromStdString(spectrum ? axisLabel(value, inc)
                                           : rulerLabel(std::max(value, 0.0), inc).text);
}

double labelWidth(const QFontMetricsF &metrics, const QString &text)
{
    // Some glyphs reach past their advance.
    return std::max(metrics.horizontalAdvance(text), metrics.boundingRect(text).width());
}

} // namespace

double ColumnHeaderView::lineSpacing(const HView &h, bool spectrum)
{
    double inc = gridSize(h.pixelWidth * h.xGridSize, h.functionOfTime);
    const QFontMetricsF metrics(labelFont(kLabelPoints));
    // A wider spacing can change the labels' decimals: a few rounds settle it.
    for (int round = 0; round < 4 && inc > 0.0; ++round) {
        const double right = h.leftTime + h.timeWidth;
        double widest = 0.0;
        for (const double value :
             {std::ceil(h.leftTime / inc) * inc, std::floor(right / inc) * inc, right})
            widest = std::max(widest, labelWidth(metrics, labelText(value, inc, spectrum)));
        const double needed = (widest + kLabelGap) * h.pixelWidth;
        if (needed <= inc)
            break;
        inc = gridSize(needed, h.functionOfTime);
    }
    return inc;
}

void ColumnHeaderView::paint(QPainter &painter, QSizeF size)
{
    labelRects.clear();
    painter.fillRect(QRectF(QPointF(0, 0), size), kDarkGrey);
    if (!setup() || !dataView)
        return;
    lastHeight = dataView->canvasHeight;
    const HView &h = *hView;
    const bool spectrum = viewType == ViewType::Spectrum;
    const double inc = lineSpacing(h, spectrum);
    if (inc <= 0.0 || h.pixelWidth <= 0.0)
        return;
    const QFont font = labelFont(kLabelPoints);
    const QFontMetricsF metrics(font);
    painter.setFont(font);
    painter.setPen(Qt::white);
    // Labels hang 4 points below the ruler's top edge.
    const double top = 4.0;
    for (auto i = static_cast<std::int64_t>(std::ceil(h.leftTime / inc));; ++i) {
        const double t = static_cast<double>(i) * inc;
        if (t >= h.leftTime + h.timeWidth)
            break;
        const QString text = labelText(t, inc, spectrum);
        const double width = labelWidth(metrics, text);
        const double centred = (t - h.leftTime) / h.pixelWidth - 0.5 * width;
        // A label at either edge is moved in to stay whole, and left out when it would then run
        // into its neighbour (or the ruler is narrower than it).
        const double x = std::clamp(centred, kEdgeMargin, size.width() - width - kEdgeMargin);
        if (x < kEdgeMargin ||
            (!labelRects.empty() && x < labelRects.back().right() + 0.5 * kLabelGap))
            continue;
        const QRectF rect(x, top, width, charHeight);
        painter.drawText(rect, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextDontClip, text);
        labelRects.push_back(rect);
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
