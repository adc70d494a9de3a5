#include "display/DisplayView.h"

#include "streams/MusicStream.h"
#include "streams/Quorval.h"

#include <QPainter>

#include <vector>

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
    setMinimumSize(100, 60);
    liveViews().push_back(this);
    Quorval::setRedisplayHandler([] {
        for (DisplayView *view : liveViews())
            view->dataChanged();
    });
    Quorval::setRecolorHandler([] {
        for (DisplayView *view : liveViews())
            view->feed.recolor();
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

void DisplayView::setPlayback(std::shared_ptr<const PlaybackState> state)
{
    feed.playback = state ? std::move(state) : std::make_shared<PlaybackState>();
    redrawAll();
}

void DisplayView::setHeaders(ScreenView *rowHeader, ScreenView *columnHeader)
{
    rowHeaderView = rowHeader;
    columnHeaderView = columnHeader;
    for (ScreenView *header : {rowHeader, columnHeader})
        if (header) {
            header->displayView = this;
            header->source = &shownSource;
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
    // At once, before the preparation: a zoom or a scroll changes the hover text now.
    announceIfMoved();
    update();
}

void DisplayView::announceIfMoved()
{
    std::optional<Place> place;
    if (bindAxes())
        place = Place{hView.get(),     dataView,          shownSnapshot().stream.get(),
                      hView->leftTime, hView->timeWidth,  hView->canvasWidth,
                      dataView->topY,  dataView->bottomY, shownSnapshot().generation};
    if (place == announcedPlace)
        return;
    announcedPlace = place;
    emit viewMoved();
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
    // The preparation itself may move the view (following the needle, a new canvas width).
    announceIfMoved();
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
    return bindAxes() ? feed.refreshExtent(*dataView) : extent();
}

void DisplayView::setPromptMessage(const QString &message)
{
    promptMessageText = message;
    update();
}

std::optional<TraceRequest> DisplayView::prepare(QSizeF size)
{
    if (!bindAxes()) {
        feed.clear();
        return std::nullopt;
    }
    std::optional<TraceRequest> request = feed.prepare(axes(), size);
    if (HView::needsScrollerUpdate && !scrollerUpdatePosted) {
        // Showing or hiding a scroller changes the layout: not from inside a redraw.
        scrollerUpdatePosted = true;
        QMetaObject::invokeMethod(this, &DisplayView::updateScrollOut, Qt::QueuedConnection);
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
    return bindAxes() && feed.prepareNow(axes(), size);
}

void DisplayView::updateScrollOut()
{
    scrollerUpdatePosted = false;
    if (!bindAxes())
        return;
    const bool h = hView->timeWidth > 0.0 && hView->showsLessThanWhole(extent());
    const bool v = dataView->showsLessThanWhole();
    const bool changed = h != canHScrollOutValue || v != canVScrollOutValue;
    canHScrollOutValue = h;
    canVScrollOutValue = v;
    emit scrollersStale();
    if (changed)
        emit scrollOutChanged(h, v);
}

void DisplayView::hZoom(double factor)
{
    if (!bindAxes() || !(factor > 0.0))
        return;
    if (factor < 1.0 && !canHScrollOutValue)
        return;
    hView->hZoom(factor, refreshExtent(), feed.playback->needleTime);
    emit selectionChanged(hView->selectionStart, hView->selectionEnd);
    redrawAll();
}

void DisplayView::hToggle()
{
    if (!bindAxes())
        return;
    hView->hToggle(canHScrollOutValue, refreshExtent());
    redrawAll();
}

void DisplayView::vZoom(double factor)
{
    if (!bindAxes() || !(factor > 0.0))
        return;
    dataView->vZoom(factor);
    HView::needsScrollerUpdate = true;
    redrawAll();
}

void DisplayView::vToggle()
{
    if (!bindAxes())
        return;
    dataView->vToggle(canVScrollOutValue);
    HView::needsScrollerUpdate = true;
    redrawAll();
}

void DisplayView::select(double start, double end)
{
    hView->selectionStart = start;
    hView->selectionEnd = end;
    emit selectionChanged(start, end);
    feed.takeSelection(*hView);
    update();
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
        paintNoteLines(painter, g, f.noteLines);
        if (f.needleTime >= 0.0)
            paintNeedle(painter, g, f.needleTime, needleColor);
        if (f.viewType == ViewType::Spectrum)
            paintSpectrum(painter, g, f.spectrum);
        else
            paintColumns(painter, g, f.columns);
        if (f.noteNames)
            paintNoteNames(painter, g, f.noteLines);
    }
    paintPrompt(painter, promptMessageText);
}

} // namespace quorval
