#include "display/DisplayView.h"

#include "analysis/PeakDataSetOC.h"
#include "display/ColumnHeaderView.h"
#include "display/MyScroller.h"
#include "display/RowHeaderView.h"
#include "options/Parameters.h"
#include "scale/Scale.h"
#include "streams/Axis.h"
#include "streams/FFTStream.h"
#include "streams/MusicStream.h"
#include "streams/PitchStream.h"
#include "streams/Quorval.h"

#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPointer>
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

// A spectrum shown first spans this much, so that the harmonics of a sung or played note stand
// apart; zooming out shows the rest.
constexpr double kFirstSpectrumWidthHz = 5000.0;

QColor toColor(const Rgba &c)
{
    return QColor::fromRgbF(c.r, c.g, c.b, c.a);
}

// Crisp one-point lines: the middle of the point the value falls in.
double crisp(double points)
{
    return std::floor(points) + 0.5;
}

} // namespace

DisplayView::DisplayView(QWidget *parent) : ScreenView(parent)
{
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
    if (columnStream && Quorval::visibleSegmentSource() == columnStream)
        Quorval::setVisibleSegmentSource(nullptr);
}

void DisplayView::setHeaders(RowHeaderView *rowHeader, ColumnHeaderView *columnHeader,
                             MyScroller *h, MyScroller *v)
{
    rowHeaderView = rowHeader;
    columnHeaderView = columnHeader;
    hScroller = h;
    vScroller = v;
    for (ScreenView *header : std::initializer_list<ScreenView *>{rowHeader, columnHeader})
        if (header)
            header->displayView = this;
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
    ++generation;
    redrawAll();
}

void DisplayView::redrawAll()
{
    // What lies under a still mouse changes with the view and with the data.
    if (mouseInside && setup())
        emit hovered(hoverAt(lastMouseX));
    update();
    if (rowHeaderView)
        rowHeaderView->update();
    if (columnHeaderView)
        columnHeaderView->update();
}

HExtent DisplayView::extent() const
{
    HExtent e;
    if (dataView && shown.extent && shown.data == dataView->data)
        e = *shown.extent;
    e.preferredLength = Parameters::shared().preferredDisplayLength.value();
    e.growing = Quorval::recording;
    return e;
}

HExtent DisplayView::refreshExtent()
{
    if (!setup() || !dataView->data)
        return extent();
    const std::shared_ptr<DataStream> data = dataView->data;
    const HExtent fetched = Quorval::dataQueue().sync([&data] {
        return HExtent{data->minimumX_D(), data->maximumX_D(), 0.0};
    });
    if (shown.data == data)
        shown.extent = fetched;
    HExtent e = fetched;
    e.preferredLength = Parameters::shared().preferredDisplayLength.value();
    e.growing = Quorval::recording;
    return e;
}

void DisplayView::setPromptMessage(const QString &message)
{
    promptMessageText = message;
    update();
}

std::optional<DisplayView::Wanted> DisplayView::prepare(QSizeF size)
{
    if (!setup())
        return std::nullopt;
    HView &h = *hView;
    DataView &v = *dataView;
    h.canvasWidth = size.width();
    v.canvasHeight = size.height();
    const bool known = shown.extent && shown.data == v.data;
    const HExtent e = extent();
    if (h.timeWidth <= 0.0 && known) {
        h.timeWidth = h.functionOfTime ? h.fullWidth(e) : std::min(e.span(), kFirstSpectrumWidthHz);
        h.leftTime = e.lowestX;
        HView::needsScrollerUpdate = true;
    }
    h.pixelWidth = h.canvasWidth > 0.0 ? h.timeWidth / h.canvasWidth : 0.0;
    v.pixelHeight = v.canvasHeight > 0.0 ? (v.topY - v.bottomY) / v.canvasHeight : 0.0;
    if (known) {
        if (h.leftTime < e.lowestX)
            h.setLeftTime(e.lowestX, e, true);
        if (h.functionOfTime && (Quorval::playing || Quorval::recording))
            h.followNeedle(Quorval::needleTime, e);
    }
    if (HView::needsScrollerUpdate && !scrollerUpdatePosted) {
        // Showing or hiding a scroller changes the layout: not from inside a paint.
        scrollerUpdatePosted = true;
        QMetaObject::invokeMethod(this, &DisplayView::updateScrollers, Qt::QueuedConnection);
    }
    HView::needsScrollerUpdate = false;

    Wanted wanted;
    wanted.data = v.data;
    if (viewType == ViewType::Spectrum || h.timeWidth <= 0.0)
        return wanted;
    const auto columns = static_cast<std::int64_t>(std::max(0.0, std::floor(h.canvasWidth)));
    if (!columnStream || columnStream->size != columns || columnStream->timeWidth != h.timeWidth ||
        columnStream->musicStream != musicStream) {
        columnStream = DisplayColumnStream::create(musicStream, columns, h.timeWidth);
        Quorval::setVisibleSegmentSource(columnStream);
        Quorval::needsRecolor = false;
        musicStream->requestCalculation();
    } else if (Quorval::needsRecolor.exchange(false)) {
        columnStream->recolor(ColumnSettings::current());
        ++generation;
    }
    wanted.stream = columnStream;
    const double first = std::floor(h.leftTime / columnStream->xScale - columnStream->overlap);
    wanted.first = std::isfinite(first) ? static_cast<std::int64_t>(std::max(0.0, first)) : 0;
    return wanted;
}

bool DisplayView::snapshotCurrent(const Wanted &wanted) const
{
    return shown.generation == generation && shown.data == wanted.data &&
           shown.stream == wanted.stream && shown.first == wanted.first;
}

DisplayView::Snapshot DisplayView::takeSnapshot(const Wanted &wanted, std::uint64_t generation,
                                                bool spectrum,
                                                const std::shared_ptr<MusicStream> &music)
{
    Snapshot s;
    s.generation = generation;
    s.data = wanted.data;
    s.stream = wanted.stream;
    s.first = wanted.first;
    if (wanted.data)
        s.extent = HExtent{wanted.data->minimumX_D(), wanted.data->maximumX_D(), 0.0};
    if (wanted.stream)
        s.fill = wanted.stream->fillAndCopy_D(wanted.first);
    if (!spectrum || !music)
        return s;
    const std::shared_ptr<FFTStream> fft = music->fftStream();
    const std::shared_ptr<PitchStream> pitch = music->pitchStream();
    if (!fft || !pitch)
        return s;
    for (std::int64_t i = fft->minimumIndex_D(); i < fft->maximumIndex_D(); ++i)
        s.spectrum.push_back(fft->valueAt_D(i));
    s.hzPerBin = fft->xScale;
    s.segment = music->fftPitchIndex;
    if (s.segment >= pitch->minimumIndex_D() && s.segment < pitch->maximumIndex_D()) {
        s.pitch = pitch->valueAt_D(s.segment);
        s.goodness = pitch->goodnessStream()->valueAt_D(s.segment);
        s.segmentTime = pitch->xScale * static_cast<double>(s.segment);
    }
    if (s.spectrum.empty())
        return s;
    // The peaks as the pitch search finds them, with its own settings.
    const PitchStream::SearchSettings search = pitch->searchSettings();
    std::vector<double> scratch = s.spectrum;
    PeakDataSetOC peaks;
    (void)peaks.setupWithN(static_cast<int>(scratch.size()), scratch.data(),
                           search.minPeakThreshold, s.hzPerBin, search.peakLowFreq,
                           search.thresholdIncrement);
    peaks.peaksForDensity();
    for (int i = 0; i < peaks.getNPeaks(); ++i)
        s.peaks.emplace_back(peaks.getXVal(i), peaks.getYVal(i) + PeakDataSetOC::kDbLimit);
    return s;
}

void DisplayView::requestSnapshot(const Wanted &wanted)
{
    // One fetch at a time: when it lands, the paint it asks for fetches again if still stale.
    if (fetchInFlight)
        return;
    fetchInFlight = true;
    const bool spectrum = viewType == ViewType::Spectrum;
    QPointer<DisplayView> self(this);
    Quorval::dataQueue().async([self, wanted, gen = generation, spectrum, music = musicStream] {
        auto snapshot = std::make_shared<Snapshot>(takeSnapshot(wanted, gen, spectrum, music));
        Quorval::postToMain([self, snapshot] {
            if (!self)
                return;
            self->fetchInFlight = false;
            const bool extentMoved = !self->shown.extent || !snapshot->extent ||
                                     self->shown.extent->highestX != snapshot->extent->highestX;
            self->takeShown(std::move(*snapshot));
            if (extentMoved)
                HView::needsScrollerUpdate = true;
            self->redrawAll();
        });
    });
}

void DisplayView::takeShown(Snapshot snapshot)
{
    shown = std::move(snapshot);
    // Goodness has no upper bound: the quality view's range grows to take what it shows.
    if (viewType != ViewType::Quality || !dataView)
        return;
    double best = 0.0;
    for (const ColumnValues &column : shown.fill.columns)
        best = std::max(best, column.goodness);
    if (best > dataView->maxY) {
        dataView->setRange(plainGridSize(best), dataView->minY);
        HView::needsScrollerUpdate = true;
    }
}

bool DisplayView::prepareNow(QSizeF size)
{
    // Twice: the first fetch may bring the extent that sets the view's width.
    for (int round = 0; round < 2; ++round) {
        const std::optional<Wanted> wanted = prepare(size);
        if (!wanted)
            return false;
        if (round > 0 && snapshotCurrent(*wanted))
            break;
        const bool spectrum = viewType == ViewType::Spectrum;
        takeShown(Quorval::dataQueue().sync(
            [&] { return takeSnapshot(*wanted, generation, spectrum, musicStream); }));
    }
    return true;
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
    update();
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
    if (shown.stream && columnStream == shown.stream && shown.stream->xScale > 0.0) {
        const auto k =
            static_cast<std::int64_t>(std::floor(info.timeSeconds / shown.stream->xScale));
        const std::int64_t slot = k - shown.first;
        if (slot >= 0 && slot < static_cast<std::int64_t>(shown.fill.columns.size())) {
            const ColumnValues &column = shown.fill.columns[static_cast<std::size_t>(slot)];
            if (column.displayPitch > 0.0) {
                const Scale scale = Scale::current();
                const double deviation = scale.deviation(column.displayPitch);
                const auto note =
                    static_cast<qint64>(std::llround(column.displayPitch - deviation));
                info.pitched = true;
                info.pitch = column.displayPitch;
                info.noteName = scale.noteName(note) + QString::number(note / 12 - 1);
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
    text += columnStream ? QString::fromStdString(columnStream->description())
                         : QStringLiteral("ColumnStream is nil");
    return text;
}

void DisplayView::paint(QPainter &painter, QSizeF size)
{
    painter.fillRect(QRectF(QPointF(0, 0), size), backgroundColor);
    const std::optional<Wanted> wanted = prepare(size);
    if (wanted) {
        if (!snapshotCurrent(*wanted))
            requestSnapshot(*wanted);
        const Geometry g = Geometry::of(*hView, *dataView);
        const HView &h = *hView;
        if (h.hasSelection() && h.pixelWidth > 0.0) {
            const double x0 = g.x(h.selectionStart);
            const double x1 = g.x(h.selectionEnd);
            painter.fillRect(QRectF(x0, 0.0, x1 - x0, size.height()), kDarkGrey);
        }
        paintGrid(painter, g, size.width());
        if (viewType == ViewType::Composite)
            paintNoteLines(painter, g, size.width());
        if (h.functionOfTime && h.pixelWidth > 0.0) {
            const double x = g.x(Quorval::needleTime);
            if (x >= 0.0 && x < g.canvasWidth) {
                painter.setPen(QPen(needleColor, 1.0));
                painter.drawLine(QLineF(crisp(x), 0.0, crisp(x), g.canvasHeight - 1.0));
            }
        }
        if (viewType == ViewType::Spectrum)
            paintSpectrum(painter, g);
        else
            paintColumns(painter, g);
    }
    if (!promptMessageText.isEmpty()) {
        painter.setFont(labelFont(14));
        painter.setPen(Qt::white);
        painter.drawText(QPointF(20.0, 30.0), promptMessageText);
    }
}

void DisplayView::paintGrid(QPainter &painter, const Geometry &g, double width)
{
    const HView &h = *hView;
    const DataView &v = *dataView;
    painter.setPen(QPen(kGrey, 1.0));
    // Lines across time (or frequency).
    // The ruler's spacing: the lines stand at the times it labels.
    timeLineInc = ColumnHeaderView::lineSpacing(h, viewType == ViewType::Spectrum);
    if (timeLineInc > 0.0) {
        for (auto i = static_cast<std::int64_t>(std::ceil(h.leftTime / timeLineInc));; ++i) {
            const double t = static_cast<double>(i) * timeLineInc;
            if (t >= h.leftTime + h.timeWidth)
                break;
            const double x = crisp(g.x(t));
            painter.drawLine(QLineF(x, 0.0, x, g.canvasHeight));
        }
    }
    if (viewType == ViewType::Composite)
        return;
    // Value lines; the first may lie below the canvas, where it is not seen.
    const double step = plainGridSize(v.pixelHeight * v.yGridSize);
    if (step <= 0.0)
        return;
    for (auto i = static_cast<std::int64_t>(std::trunc(v.bottomY / step));; ++i) {
        const double value = static_cast<double>(i) * step;
        if (value > v.topY)
            break;
        const double y = crisp(g.y(value));
        painter.drawLine(QLineF(0.0, y, width, y));
    }
}

void DisplayView::paintNoteLines(QPainter &painter, const Geometry &g, double width) const
{
    const DataView &v = *dataView;
    const HView &h = *hView;
    const Scale scale = Scale::current();
    const std::vector<GridLine> lines = scale.gridLines(std::ceil(v.bottomY), std::floor(v.topY));
    for (const GridLine &line : lines) {
        const double level = 0.75 - 0.1 * static_cast<double>(std::clamp<qint64>(line.rank, 0, 5));
        painter.setPen(QPen(grey(level), 1.0));
        const double y = crisp(g.y(line.pitch));
        painter.drawLine(QLineF(0.0, y, width, y));
    }
    const double period = 5.0 * timeLineInc;
    if (!Parameters::shared().showNoteNamesOnGrid.value() || period <= 0.0 || v.maxY <= v.minY)
        return;
    painter.setFont(labelFont(11));
    painter.setPen(Qt::yellow);
    const double start = std::floor(h.leftTime / period) * period;
    for (const GridLine &line : lines) {
        const double y = g.y(line.pitch);
        // Neighbouring lines' names stand staggered in time, not in one column.
        for (double t = start + period * (line.pitch - v.minY) / (v.maxY - v.minY);
             t < h.leftTime + h.timeWidth; t += period)
            painter.drawText(QPointF(g.x(t) + 2.0, y + 11.0), line.name);
    }
}

void DisplayView::paintColumns(QPainter &painter, const Geometry &g) const
{
    if (!shown.stream || shown.stream != columnStream || g.canvasHeight <= 0.0)
        return;
    const DataView &v = *dataView;
    const double range = v.topY - v.bottomY;
    if (range <= 0.0)
        return;
    const std::int64_t first = static_cast<std::int64_t>(
        std::max(0.0, std::floor(hView->leftTime / columnStream->xScale - columnStream->overlap)));
    Parameters &options = Parameters::shared();
    double volumeScale = 32768.0;
    if (viewType == ViewType::Composite && options.automaticGainControl.value()) {
        double loudest = 0.0;
        for (const ColumnValues &c : shown.fill.columns)
            loudest = std::max(loudest, c.rmsVolume);
        if (loudest > 0.0)
            volumeScale = loudest;
    }
    const double thickness = options.traceHeight.value() * 40.0;
    const double zeroUp = g.canvasHeight * (0.0 - v.bottomY) / range;
    double previousTop = -1.0;
    double previousBottom = -1.0;
    // Strokes are two points wide, centred on the column's left edge.
    auto stroke = [&](double x, double upLow, double upHigh, const QColor &color) {
        painter.fillRect(QRectF(x - 1.0, g.flip(upHigh), 2.0, upHigh - upLow), color);
    };
    for (const ColumnValues &c : shown.fill.columns) {
        const double x = static_cast<double>(c.index - first);
        if (x < 0.0 || x >= g.canvasWidth)
            continue;
        switch (viewType) {
        case ViewType::Composite: {
            if (!(c.displayPitch > 0.0) || !c.color || !(c.rmsVolume > 0.0))
                break;
            const double y = g.up(c.displayPitch);
            if (y < 0.0 || y >= g.canvasHeight)
                break;
            const double half =
                std::max(c.rmsVolume / volumeScale * thickness * 0.5, minTraceHeight);
            stroke(x, std::max(y - half, 0.0), y + half, toColor(*c.color));
            break;
        }
        case ViewType::Pitch:
        case ViewType::Quality: {
            const double value = viewType == ViewType::Pitch ? c.displayPitch : c.goodness;
            if (!(value > 0.0))
                break;
            const double y = g.canvasHeight * (value - v.bottomY) / range;
            stroke(x, y, y + 1.0, volumeColor);
            break;
        }
        case ViewType::RMSAmplitude:
        case ViewType::Amplitude: {
            if (c.rmsVolume < 0.0) {
                previousTop = previousBottom = -1.0;
                break;
            }
            double top = 0.0;
            double bottom = 0.0;
            if (viewType == ViewType::RMSAmplitude) {
                top = c.rmsVolume / range * g.canvasHeight;
                bottom = -top;
            } else {
                top = c.maxVolume / range * g.canvasHeight + 1.0;
                bottom = c.minVolume / range * g.canvasHeight;
            }
            // Neighbouring columns always touch.
            stroke(x, zeroUp + std::min(previousTop, bottom),
                   zeroUp + std::max(top, previousBottom), volumeColor);
            previousTop = top;
            previousBottom = bottom;
            break;
        }
        case ViewType::Spectrum:
            break;
        }
    }
}

void DisplayView::paintSpectrum(QPainter &painter, const Geometry &g) const
{
    if (shown.spectrum.empty() || shown.hzPerBin <= 0.0 || g.pixelWidth <= 0.0)
        return;
    const HView &h = *hView;
    const auto count = static_cast<std::int64_t>(shown.spectrum.size());
    const auto firstBin = std::clamp<std::int64_t>(
        static_cast<std::int64_t>(std::floor(h.leftTime / shown.hzPerBin)) - 1, 0, count - 1);
    const auto lastBin = std::clamp<std::int64_t>(
        static_cast<std::int64_t>(std::ceil((h.leftTime + h.timeWidth) / shown.hzPerBin)) + 1, 0,
        count - 1);
    QPainterPath curve;
    const double floorY = g.canvasHeight;
    curve.moveTo(g.x(static_cast<double>(firstBin) * shown.hzPerBin), floorY);
    for (std::int64_t i = firstBin; i <= lastBin; ++i)
        curve.lineTo(g.x(static_cast<double>(i) * shown.hzPerBin),
                     std::min(g.y(shown.spectrum[static_cast<std::size_t>(i)]), floorY));
    curve.lineTo(g.x(static_cast<double>(lastBin) * shown.hzPerBin), floorY);
    curve.closeSubpath();
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillPath(curve, QColor::fromRgbF(0.55, 0.7, 1.0, 0.45));
    painter.strokePath(curve, QPen(volumeColor, 1.0));

    // The harmonics of the pitch the segment got, ticked from the top.
    const QColor harmonicColor = QColor::fromRgbF(0.3, 0.9, 0.3);
    painter.setFont(labelFont(9));
    if (shown.pitch > 0.0) {
        const double f0 = Scale::frequency(shown.pitch, Parameters::shared().aFrequency.value());
        painter.setPen(QPen(harmonicColor, 1.0, Qt::DashLine));
        // Numbers only where they have room.
        const bool numbered = f0 / g.pixelWidth >= 14.0;
        for (int k = 1; k * f0 < h.leftTime + h.timeWidth && k <= 64; ++k) {
            const double x = g.x(k * f0);
            if (x < 0.0)
                continue;
            painter.drawLine(QLineF(x, 12.0, x, g.canvasHeight));
            if (numbered)
                painter.drawText(QPointF(x - 3.0, 10.0), QString::number(k));
        }
    }
    // The peaks the search found.
    painter.setPen(Qt::NoPen);
    painter.setBrush(Qt::yellow);
    for (const auto &[hz, db] : shown.peaks) {
        const double x = g.x(hz);
        const double y = g.y(db);
        if (x < 0.0 || x >= g.canvasWidth)
            continue;
        const QPointF marker[3] = {{x, y - 1.0}, {x - 4.0, y - 8.0}, {x + 4.0, y - 8.0}};
        painter.drawPolygon(marker, 3);
    }
    painter.restore();

    // Which segment this is and what it got.
    QString text = QStringLiteral("Segment at %1")
                       .arg(QString::fromStdString(rulerLabel(shown.segmentTime, 0.01).text));
    if (shown.pitch > 0.0) {
        const Scale scale = Scale::current();
        const double deviation = scale.deviation(shown.pitch);
        const auto note = static_cast<qint64>(std::llround(shown.pitch - deviation));
        text += QStringLiteral(": %1%2 %3%4 cents, %5 Hz, goodness %6")
                    .arg(scale.noteName(note))
                    .arg(note / 12 - 1)
                    .arg(deviation >= 0.0 ? QStringLiteral("+") : QString())
                    .arg(deviation * 100.0, 0, 'f', 0)
                    .arg(Scale::frequency(shown.pitch, Parameters::shared().aFrequency.value()), 0,
                         'f', 1)
                    .arg(shown.goodness, 0, 'f', 0);
    } else {
        text += QStringLiteral(": no pitch");
    }
    // Below the harmonic numbers, on a backing of its own so the curve does not cross it.
    painter.setFont(labelFont(11));
    const double textWidth = painter.fontMetrics().horizontalAdvance(text) + 8.0;
    const QRectF box(g.canvasWidth - textWidth - 4.0, 16.0, textWidth, 16.0);
    painter.fillRect(box, QColor::fromRgbF(0.0, 0.0, 0.0, 0.7));
    painter.setPen(Qt::white);
    painter.drawText(box, Qt::AlignCenter, text);
}

} // namespace quorval
