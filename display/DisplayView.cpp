#include "display/DisplayView.h"

#include "display/MyScroller.h"
#include "options/Parameters.h"
#include "scale/Scale.h"
#include "streams/Axis.h"
#include "streams/MusicStream.h"
#include "streams/Quorval.h"

#include <QMouseEvent>
#include <QPainter>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

namespace quorval {

namespace {

// The views alive, for the one redisplay handler. Main thread.
std::vector<DisplayView *> &liveViews()
{
    static std::vector<DisplayView *> views;
    return views;
}

} // namespace

DisplayView::DisplayView(QWidget *parent) : ScreenView(parent)
{
    displayView = this;
    source = &shownSource;
    connect(&feed, &TraceFeed::landed, this, [this](bool extentMoved) {
        if (extentMoved)
            HView::needsScrollerUpdate = true;
        redrawAll();
    });
    setMouseTracking(true);
    setMinimumSize(100, 60);
    liveViews().push_back(this);
    Quorval::setRedisplayHandler([] {
        for (DisplayView *view : liveViews())
            view->dataChanged();
    });
}

DisplayView::~DisplayView()
{
    std::erase(liveViews(), this);
    if (feed.columnStream && Quorval::visibleSegmentSource() == feed.columnStream)
        Quorval::setVisibleSegmentSource(nullptr);
}

void DisplayView::setSound(std::shared_ptr<MusicStream> music)
{
    if (music == shownSource.music)
        return;
    if (shownSource.music)
        shownSource.music->showSpectrumAt(-1.0);
    shownSource.music = std::move(music);
    HView::needsScrollerUpdate = true;
    dataChanged();
}

void DisplayView::setViewType(ViewType type)
{
    if (type == shownSource.viewType)
        return;
    shownSource.viewType = type;
    HView::needsScrollerUpdate = true;
    dataChanged();
}

void DisplayView::setHeaders(ScreenView *rowHeader, ScreenView *columnHeader, MyScroller *h,
                             MyScroller *v)
{
    rowHeaderView = rowHeader;
    columnHeaderView = columnHeader;
    hScroller = h;
    vScroller = v;
    for (ScreenView *header : std::initializer_list<ScreenView *>{rowHeader, columnHeader})
        if (header) {
            header->displayView = this;
            header->source = &shownSource;
        }
    if (h) {
        h->horizontal = true;
        connect(h, &MyScroller::positionChanged, this, &DisplayView::applyHScroller);
        connect(h, &MyScroller::pageRequested, this, &DisplayView::pageH);
    }
    if (v) {
        v->horizontal = false;
        connect(v, &MyScroller::positionChanged, this, &DisplayView::applyVScroller);
        connect(v, &MyScroller::pageRequested, this, &DisplayView::pageV);
    }
    HView::needsScrollerUpdate = true;
    redrawAll();
}

void DisplayView::requestRedraw()
{
    Quorval::redisplay();
}

void DisplayView::dataChanged()
{
    feed.dataChanged();
    redrawAll();
    emit dataMarkedChanged();
}

void DisplayView::redrawAll()
{
    // Off screen nothing is painted; a picture prepares for its own size (prepareNow). The
    // requests of one turn of the event loop (a burst of calculated segments, a drag) share
    // one preparation.
    if (isVisible() && !preparePosted) {
        preparePosted = true;
        QMetaObject::invokeMethod(this, &DisplayView::prepareShown, Qt::QueuedConnection);
    }
    // What lies under a still mouse changes with the view and with the data.
    if (mouseInside && setup())
        emit hovered(hoverAt(lastMouseX));
    update();
}

void DisplayView::prepareShown()
{
    preparePosted = false;
    if (const std::optional<TraceRequest> request = prepare(QSizeF(size())))
        feed.fetch(*request);
    update();
    if (rowHeaderView)
        rowHeaderView->update();
    if (columnHeaderView)
        columnHeaderView->update();
    emit prepared();
}

void DisplayView::resizeEvent(QResizeEvent *event)
{
    ScreenView::resizeEvent(event);
    redrawAll();
}

void DisplayView::showEvent(QShowEvent *event)
{
    // The size came before the view was visible: prepare for it now.
    ScreenView::showEvent(event);
    redrawAll();
}

HExtent DisplayView::extent() const
{
    return feed.extent(dataView);
}

HExtent DisplayView::refreshExtent()
{
    return setup() ? feed.refreshExtent(*dataView) : extent();
}

void DisplayView::setPromptMessage(const QString &message)
{
    promptMessageText = message;
    update();
}

std::optional<TraceRequest> DisplayView::prepare(QSizeF size)
{
    if (!setup()) {
        feed.clear();
        return std::nullopt;
    }
    std::optional<TraceRequest> request = feed.prepare(axes(), size);
    if (HView::needsScrollerUpdate && !scrollerUpdatePosted) {
        // Showing or hiding a scroller changes the layout: not from inside a redraw.
        scrollerUpdatePosted = true;
        QMetaObject::invokeMethod(this, &DisplayView::updateScrollers, Qt::QueuedConnection);
    }
    HView::needsScrollerUpdate = false;
    return request;
}

TraceFeed::Axes DisplayView::axes() const
{
    return {*hView, *dataView, musicStream, viewType};
}

bool DisplayView::prepareNow(QSizeF size)
{
    return setup() && feed.prepareNow(axes(), size);
}

void DisplayView::updateScrollers()
{
    scrollerUpdatePosted = false;
    if (!setup())
        return;
    const HExtent e = extent();
    const bool h = hView->timeWidth > 0.0 && hView->showsLessThanWhole(e);
    const bool v = dataView->showsLessThanWhole();
    if (hScroller) {
        hScroller->setVisible(h);
        if (h)
            hScroller->setKnob(hView->scrollerProportion(e), hView->scrollerPosition(e));
    }
    if (vScroller) {
        vScroller->setVisible(v);
        if (v)
            vScroller->setKnob(dataView->scrollerProportion(), dataView->scrollerPosition());
    }
    if (h != canHScrollOutValue || v != canVScrollOutValue) {
        canHScrollOutValue = h;
        canVScrollOutValue = v;
        emit scrollOutChanged(h, v);
    }
}

void DisplayView::applyHScroller(double position)
{
    if (!setup())
        return;
    hView->setScrollerPosition(position, extent());
    redrawAll();
}

void DisplayView::applyVScroller(double position)
{
    if (!setup())
        return;
    dataView->setScrollerPosition(position);
    redrawAll();
}

void DisplayView::pageH(int direction)
{
    if (!setup())
        return;
    hView->setLeftTime(hView->leftTime + 0.5 * direction * hView->timeWidth, refreshExtent(), true);
    redrawAll();
}

void DisplayView::pageV(int direction)
{
    if (!setup())
        return;
    // Towards the top (direction -1) raises the band.
    dataView->scrollY(-0.5 * direction * (dataView->topY - dataView->bottomY));
    HView::needsScrollerUpdate = true;
    redrawAll();
}

void DisplayView::hZoom(double factor)
{
    if (!setup() || !(factor > 0.0))
        return;
    if (factor < 1.0 && !canHScrollOutValue)
        return;
    hView->hZoom(factor, refreshExtent(), Quorval::needleTime);
    emit selectionChanged(hView->selectionStart, hView->selectionEnd);
    redrawAll();
}

void DisplayView::hToggle()
{
    if (!setup())
        return;
    hView->hToggle(canHScrollOutValue, refreshExtent());
    redrawAll();
}

void DisplayView::vZoom(double factor)
{
    if (!setup() || !(factor > 0.0))
        return;
    dataView->vZoom(factor);
    HView::needsScrollerUpdate = true;
    redrawAll();
}

void DisplayView::vToggle()
{
    if (!setup())
        return;
    dataView->vToggle(canVScrollOutValue);
    HView::needsScrollerUpdate = true;
    redrawAll();
}

double DisplayView::timeAt(double x) const
{
    // A zoom changes the width before the next redraw brings the scale up to date.
    const double perPoint =
        hView->canvasWidth > 0.0 ? hView->timeWidth / hView->canvasWidth : hView->pixelWidth;
    return hView->leftTime + perPoint * x;
}

void DisplayView::mousePressEvent(QMouseEvent *event)
{
    mouseInside = true;
    lastMouseX = event->position().x();
    if (event->button() != Qt::LeftButton || Quorval::playing || Quorval::recording)
        return;
    if (!setup() || hView->pixelWidth <= 0.0)
        return;
    const HExtent e = refreshExtent();
    const double t = std::max(std::min(timeAt(event->position().x()), e.highestX), e.lowestX);
    hView->mouseDown = t;
    if (hView->functionOfTime) {
        Quorval::playStartTime = t;
        emit playStartChanged(t);
    }
    hView->selectionStart = -1.0;
    hView->selectionEnd = -1.0;
    emit selectionChanged(-1.0, -1.0);
    showSelection();
}

void DisplayView::mouseMoveEvent(QMouseEvent *event)
{
    mouseInside = true;
    lastMouseX = event->position().x();
    if (setup())
        emit hovered(hoverAt(lastMouseX));
    if (!(event->buttons() & Qt::LeftButton))
        return;
    if (Quorval::playing || Quorval::recording || !setup() || hView->mouseDown < 0.0)
        return;
    const HExtent e = extent();
    const double t = std::max(std::min(timeAt(event->position().x()), e.highestX), e.lowestX);
    hView->selectionStart = std::min(hView->mouseDown, t);
    hView->selectionEnd = std::max(hView->mouseDown, t);
    emit selectionChanged(hView->selectionStart, hView->selectionEnd);
    showSelection();
}

void DisplayView::showSelection()
{
    feed.takeSelection(*hView);
    update();
}

void DisplayView::wheelEvent(QWheelEvent *event)
{
    mouseInside = true;
    lastMouseX = event->position().x();
    if (!setup() || hView->timeWidth <= 0.0)
        return;
    const QPoint delta = event->angleDelta();
    if (event->modifiers() & Qt::ControlModifier) {
        const double increment = Parameters::shared().zoomIncrement.value();
        hZoom(delta.y() > 0 ? increment : 1.0 / increment);
        return;
    }
    // A notch moves a tenth of the view; either wheel direction scrolls in time.
    const int notches = delta.x() != 0 ? delta.x() : delta.y();
    hView->setLeftTime(hView->leftTime - notches / 120.0 * 0.1 * hView->timeWidth, refreshExtent(),
                       true);
    redrawAll();
}

void DisplayView::leaveEvent(QEvent *event)
{
    mouseInside = false;
    emit hovered(HoverInfo{});
    ScreenView::leaveEvent(event);
}

HoverInfo DisplayView::hoverAt(double x) const
{
    HoverInfo info;
    if (!hView || !dataView)
        return info;
    info.timeSeconds = timeAt(x);
    if (!hView->functionOfTime) {
        info.text = QStringLiteral("%1 Hz").arg(info.timeSeconds, 0, 'f', 1);
        return info;
    }
    info.text = QString::fromStdString(rulerLabel(std::max(0.0, info.timeSeconds), 0.01).text);
    const TraceSnapshot &shown = feed.shown();
    if (shown.stream && feed.columnStream == shown.stream && shown.stream->xScale > 0.0) {
        const auto k =
            static_cast<std::int64_t>(std::floor(info.timeSeconds / shown.stream->xScale));
        const std::int64_t slot = k - shown.first;
        if (slot >= 0 && slot < static_cast<std::int64_t>(shown.fill.columns.size())) {
            const ColumnValues &column = shown.fill.columns[static_cast<std::size_t>(slot)];
            if (column.displayPitch > 0.0) {
                const Scale scale = Scale::current();
                const double deviation = scale.deviation(column.displayPitch);
                info.pitched = true;
                info.pitch = column.displayPitch;
                // Written pitch and a loaded tuning's lines, as everywhere notes are named.
                info.noteName = scale.noteNameWithOctave(scale.nearestLine(column.displayPitch));
                info.cents = deviation * 100.0;
                info.goodness = column.goodness;
                info.text += QStringLiteral("  %1 %2%3 cents  goodness %4")
                                 .arg(info.noteName)
                                 .arg(info.cents >= 0.0 ? QStringLiteral("+") : QString())
                                 .arg(info.cents, 0, 'f', 0)
                                 .arg(info.goodness, 0, 'f', 0);
            }
        }
    }
    return info;
}

QString DisplayView::description() const
{
    QString text =
        QString::asprintf("leftTime %f, timeWidth %f\n", hView->leftTime, hView->timeWidth);
    text += feed.columnStream ? QString::fromStdString(feed.columnStream->description())
                              : QStringLiteral("ColumnStream is nil");
    return text;
}

void DisplayView::paint(QPainter &painter, QSizeF size)
{
    painter.fillRect(QRectF(QPointF(0, 0), size), backgroundColor);
    const TraceFeed::Frame &f = feed.frame();
    if (f.drawn) {
        const Geometry &g = f.geometry;
        paintSelection(painter, g, f.selectionStart, f.selectionEnd);
        paintAcrossLines(painter, g, f.acrossSpacing);
        paintValueLines(painter, g, f.valueStep);
        paintNoteLines(painter, g, f.noteLines, f.noteNames);
        if (f.needleTime >= 0.0)
            paintNeedle(painter, g, f.needleTime, needleColor);
        if (f.viewType == ViewType::Spectrum)
            paintSpectrum(painter, g, f.spectrum);
        else
            paintColumns(painter, g, f.columns);
    }
    paintPrompt(painter, promptMessageText);
}

} // namespace quorval
