#include "display/TraceArea.h"

#include "display/ColumnHeaderView.h"
#include "display/DisplayView.h"
#include "display/MyScroller.h"
#include "display/OverviewStrip.h"
#include "display/RowHeaderView.h"
#include "display/TracePainters.h"
#include "display/TracePointer.h"
#include "display/TraceScrollers.h"

#include <QGridLayout>
#include <QPainter>
#include <QSvgGenerator>

#include <cmath>

namespace quorval {

TraceArea::TraceArea(QWidget *parent)
    : QWidget(parent), displayView(new DisplayView(this)), rowHeaderView(new RowHeaderView(this)),
      columnHeaderView(new ColumnHeaderView(this)), hScroller(new MyScroller(Qt::Horizontal, this)),
      vScroller(new MyScroller(Qt::Vertical, this)), pointer(new TracePointer(*displayView)),
      overviewStrip(new OverviewStrip(*displayView, this))
{
    auto *layout = new QGridLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    // The keyboard runs on beside the horizontal scroller, as the canvas's own strip does.
    layout->addWidget(overviewStrip, 0, 1);
    layout->addWidget(columnHeaderView, 1, 1);
    layout->addWidget(rowHeaderView, 2, 0, 2, 1);
    layout->addWidget(displayView, 2, 1);
    layout->addWidget(vScroller, 2, 2);
    layout->addWidget(hScroller, 3, 1);
    layout->setRowStretch(2, 1);
    layout->setColumnStretch(1, 1);
    hScroller->hide();
    vScroller->hide();
    new TraceScrollers(*displayView, hScroller, vScroller);
    displayView->setHeaders(rowHeaderView, columnHeaderView);
}

QSizeF TraceArea::pictureSize(QSizeF traceSize) const
{
    return {traceSize.width() + rowHeaderView->width(),
            traceSize.height() + columnHeaderView->height()};
}

bool TraceArea::paintPicture(QPainter &painter, QSizeF traceSize)
{
    if (!displayView->prepareNow(traceSize))
        return false;
    const double left = rowHeaderView->width();
    const double top = columnHeaderView->height();
    // The trace first: it sets the sizes the headers read.
    painter.save();
    painter.translate(left, top);
    painter.setClipRect(QRectF(QPointF(0, 0), traceSize));
    displayView->paint(painter, traceSize);
    painter.restore();
    painter.save();
    painter.translate(0.0, top);
    painter.setClipRect(QRectF(0.0, 0.0, left, traceSize.height()));
    rowHeaderView->paint(painter, QSizeF(left, traceSize.height()));
    painter.restore();
    painter.save();
    painter.translate(left, 0.0);
    painter.setClipRect(QRectF(0.0, 0.0, traceSize.width(), top));
    columnHeaderView->paint(painter, QSizeF(traceSize.width(), top));
    painter.restore();
    painter.fillRect(QRectF(0.0, 0.0, left, top), kDarkGrey);
    return true;
}

QImage TraceArea::picture(QSizeF traceSize, double scale)
{
    const QSizeF points = pictureSize(traceSize);
    QImage image(static_cast<int>(std::ceil(points.width() * scale)),
                 static_cast<int>(std::ceil(points.height() * scale)), QImage::Format_RGB32);
    image.setDevicePixelRatio(scale);
    image.fill(Qt::black);
    QPainter painter(&image);
    if (!paintPicture(painter, traceSize))
        return {};
    return image;
}

bool TraceArea::writePicture(const QString &path, QSizeF traceSize, double scale)
{
    if (!path.endsWith(QLatin1String(".svg"), Qt::CaseInsensitive)) {
        const QImage image = picture(traceSize, scale);
        return !image.isNull() && image.save(path);
    }
    const QSizeF points = pictureSize(traceSize);
    QSvgGenerator svg;
    svg.setFileName(path);
    svg.setSize(points.toSize());
    svg.setViewBox(QRectF(QPointF(0, 0), points));
    svg.setTitle(QStringLiteral("Quorval trace"));
    QPainter painter;
    if (!painter.begin(&svg))
        return false;
    const bool drawn = paintPicture(painter, traceSize);
    return painter.end() && drawn;
}

} // namespace quorval
