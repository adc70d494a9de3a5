#include "display/TracePointer.h"

#include "display/DisplayView.h"
#include "options/Parameters.h"
#include "scale/Scale.h"
#include "streams/Axis.h"

#include <QCursor>
#include <QMouseEvent>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

namespace quorval {

TracePointer::TracePointer(DisplayView &watched) : QObject(&watched), view(watched)
{
    view.setMouseTracking(true);
    view.installEventFilter(this);
    connect(&view, &DisplayView::viewMoved, this, &TracePointer::viewMoved);
}

bool TracePointer::eventFilter(QObject *watched, QEvent *event)
{
    if (watched != &view)
        return false;
    switch (event->type()) {
    case QEvent::MouseButtonPress:
        press(static_cast<const QMouseEvent &>(*event));
        return true;
    case QEvent::MouseMove:
        move(static_cast<const QMouseEvent &>(*event));
        return true;
    case QEvent::Wheel:
        wheel(static_cast<const QWheelEvent &>(*event));
        return true;
    case QEvent::Leave:
        mouseInside = false;
        emit hovered(HoverInfo{});
        return false;
    default:
        return false;
    }
}

double TracePointer::timeAt(double x) const
{
    const HView &h = *view.hView;
    // A zoom changes the width before the next preparation brings the scale up to date.
    const double perPoint = h.canvasWidth > 0.0 ? h.timeWidth / h.canvasWidth : h.pixelWidth;
    return h.leftTime + perPoint * x;
}

double TracePointer::clampedTimeAt(double x, const HExtent &e) const
{
    return std::max(std::min(timeAt(x), e.highestX), e.lowestX);
}

void TracePointer::press(const QMouseEvent &event)
{
    mouseInside = true;
    if (event.button() != Qt::LeftButton || view.playback().running())
        return;
    if (!view.bindAxes() || view.hView->pixelWidth <= 0.0)
        return;
    const double t = clampedTimeAt(event.position().x(), view.refreshExtent());
    view.hView->mouseDown = t;
    if (view.hView->functionOfTime)
        emit playStartChanged(t);
    view.select(-1.0, -1.0);
}

void TracePointer::move(const QMouseEvent &event)
{
    mouseInside = true;
    const double x = event.position().x();
    if (view.bindAxes())
        emit hovered(hoverAt(x));
    if (!(event.buttons() & Qt::LeftButton) || view.playback().running() || !view.bindAxes() ||
        view.hView->mouseDown < 0.0)
        return;
    const double t = clampedTimeAt(x, view.extent());
    view.select(std::min(view.hView->mouseDown, t), std::max(view.hView->mouseDown, t));
}

void TracePointer::wheel(const QWheelEvent &event)
{
    mouseInside = true;
    if (!view.bindAxes() || view.hView->timeWidth <= 0.0)
        return;
    const QPoint delta = event.angleDelta();
    if (event.modifiers() & Qt::ControlModifier) {
        const double increment = Parameters::shared().zoomIncrement.value();
        view.hZoom(delta.y() > 0 ? increment : 1.0 / increment);
        return;
    }
    // A notch moves a tenth of the view; either wheel direction scrolls in time.
    const int notches = delta.x() != 0 ? delta.x() : delta.y();
    HView &h = *view.hView;
    h.setLeftTime(h.leftTime - notches / 120.0 * 0.1 * h.timeWidth, view.refreshExtent(), true);
    view.redrawAll();
}

void TracePointer::viewMoved()
{
    // Where the cursor is now: the last move event may be older than the cursor's position.
    if (mouseInside && view.bindAxes())
        emit hovered(hoverAt(view.mapFromGlobal(QCursor::pos()).x()));
}

HoverInfo TracePointer::hoverAt(double x) const
{
    HoverInfo info;
    if (!view.hView || !view.dataView)
        return info;
    info.timeSeconds = timeAt(x);
    if (!view.hView->functionOfTime) {
        info.text = QStringLiteral("%1 Hz").arg(info.timeSeconds, 0, 'f', 1);
        return info;
    }
    info.text = QString::fromStdString(rulerLabel(std::max(0.0, info.timeSeconds), 0.01).text);
    const TraceSnapshot &shown = view.shownSnapshot();
    if (!shown.stream || view.columnStream() != shown.stream || shown.stream->xScale <= 0.0)
        return info;
    const auto k = static_cast<std::int64_t>(std::floor(info.timeSeconds / shown.stream->xScale));
    const std::int64_t slot = k - shown.first;
    if (slot < 0 || slot >= static_cast<std::int64_t>(shown.fill.columns.size()))
        return info;
    const ColumnValues &column = shown.fill.columns[static_cast<std::size_t>(slot)];
    if (column.displayPitch <= 0.0)
        return info;
    const Scale scale = Scale::current();
    info.pitched = true;
    info.pitch = column.displayPitch;
    // Written pitch and a loaded tuning's lines, as everywhere notes are named.
    info.noteName = scale.noteNameWithOctave(scale.nearestLine(column.displayPitch));
    info.cents = scale.deviation(column.displayPitch) * 100.0;
    info.goodness = column.goodness;
    info.text += QStringLiteral("  %1 %2%3 cents  goodness %4")
                     .arg(info.noteName)
                     .arg(info.cents >= 0.0 ? QStringLiteral("+") : QString())
                     .arg(info.cents, 0, 'f', 0)
                     .arg(info.goodness, 0, 'f', 0);
    return info;
}

} // namespace quorval
