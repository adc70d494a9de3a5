#include "display/OverviewStrip.h"

#include "display/DisplayView.h"
#include "display/TracePainters.h"
#include "streams/DisplayColumnStream.h"
#include "streams/MusicStream.h"
#include "streams/PitchStream.h"
#include "streams/Quorval.h"
#include "streams/ResultStream.h"

#include <QMouseEvent>
#include <QPainter>
#include <QPointer>
#include <QTimer>

#include <algorithm>
#include <cmath>

namespace quorval {

namespace {

// The strip's pitch axis spans at least this many semitones, so one held note sits mid-strip.
constexpr double kMinPitchSpan = 6.0;

} // namespace

OverviewReducer::OverviewReducer(double startSeconds, double spanSeconds, int columns,
                                 double segmentSeconds)
    : start(startSeconds), span(spanSeconds), segment(std::max(segmentSeconds, 0.0)),
      result(static_cast<std::size_t>(std::max(columns, 0)))
{
}

void OverviewReducer::add(double timeSeconds, double pitch, double goodness)
{
    if (!(pitch > 0.0) || !(span > 0.0) || result.empty())
        return;
    const double n = static_cast<double>(result.size());
    const double first = std::floor((timeSeconds - start) / span * n);
    // A segment that ends on a column's edge (within rounding) stays out of that column.
    const double last =
        std::max(first, std::ceil((timeSeconds + segment - start) / span * n - 1e-6) - 1.0);
    if (!(first < n) || !(last >= 0.0))
        return;
    const auto end = static_cast<std::size_t>(std::min(last, n - 1.0));
    for (auto k = static_cast<std::size_t>(std::max(first, 0.0)); k <= end; ++k) {
        Column &column = result[k];
        if (column.pitch <= 0.0 || goodness > column.goodness)
            column = {pitch, goodness};
    }
}

struct OverviewStrip::Read
{
    std::shared_ptr<PitchStream> pitch;
    HExtent extent;
    int width = 0;
    std::vector<OverviewReducer::Column> columns;
};

OverviewStrip::OverviewStrip(DisplayView &traceView, QWidget *parent)
    : QWidget(parent), trace(traceView), refreshTimer(new QTimer(this))
{
    setFixedHeight(kHeight);
    setCursor(Qt::PointingHandCursor);
    setToolTip(tr("The whole sound: click or drag to show that stretch"));
    hide();
    refreshTimer->setSingleShot(true);
    refreshTimer->setInterval(kRefreshMs);
    connect(refreshTimer, &QTimer::timeout, this, &OverviewStrip::fetch);
    connect(&trace, &DisplayView::scrollOutChanged, this, &OverviewStrip::follow);
    connect(&trace, &DisplayView::prepared, this, &OverviewStrip::follow);
    connect(&trace, &DisplayView::dataMarkedChanged, this, [this] {
        if (!refreshTimer->isActive())
            refreshTimer->start();
    });
}

QSize OverviewStrip::sizeHint() const
{
    return {200, kHeight};
}

HView *OverviewStrip::timeView() const
{
    const std::shared_ptr<MusicStream> &music = trace.sound();
    if (!music || trace.shownViewType() == ViewType::Spectrum)
        return nullptr;
    return music->timeView.get();
}

void OverviewStrip::follow()
{
    const HView *h = timeView();
    const bool wanted = h && h->timeWidth > 0.0 && trace.canHScrollOut();
    if (wanted != isVisible())
        setVisible(wanted);
    if (!wanted)
        return;
    // A sound that grew or a new one: read again; a scroll only moves the mark.
    const HExtent now = trace.extent();
    if ((now.lowestX != extent.lowestX || now.highestX != extent.highestX) &&
        !refreshTimer->isActive())
        refreshTimer->start();
    // The trace redraws at every step of the needle; the strip only when its mark moves.
    const std::pair<double, double> mark = markedStretch();
    if (mark != paintedMark)
        update();
}

std::shared_ptr<OverviewStrip::Read> OverviewStrip::startRead()
{
    const std::shared_ptr<MusicStream> &music = trace.sound();
    if (!music || !timeView() || width() <= 0)
        return nullptr;
    auto read = std::make_shared<Read>();
    read->pitch = music->pitchStream();
    read->extent = trace.extent();
    read->width = width();
    return read->pitch ? read : nullptr;
}

void OverviewStrip::read_D(Read &read)
{
    const PitchStream &pitch = *read.pitch;
    OverviewReducer reducer(read.extent.lowestX, read.extent.span(), read.width, pitch.xScale);
    const ResultStream &goodness = *pitch.goodnessStream();
    for (std::int64_t i = pitch.minimumIndex_D(); i < pitch.maximumIndex_D(); ++i)
        reducer.add(pitch.xScale * static_cast<double>(i), pitch.valueAt_D(i),
                    goodness.valueAt_D(i));
    read.columns = reducer.columns();
}

void OverviewStrip::fetch()
{
    if (!isVisible())
        return;
    // One read at a time; results that come meanwhile ask for one more.
    if (fetchInFlight) {
        fetchAgain = true;
        return;
    }
    const std::shared_ptr<Read> read = startRead();
    if (!read)
        return;
    fetchInFlight = true;
    QPointer<OverviewStrip> self(this);
    Quorval::dataQueue().async([self, read] {
        read_D(*read);
        Quorval::postToMain([self, read] {
            if (!self)
                return;
            self->fetchInFlight = false;
            self->take(*read);
            if (std::exchange(self->fetchAgain, false))
                self->refreshTimer->start();
        });
    });
}

void OverviewStrip::refreshNow()
{
    const std::shared_ptr<Read> read = startRead();
    if (!read)
        return;
    Quorval::dataQueue().sync([&read] { read_D(*read); });
    take(*read);
}

void OverviewStrip::take(const Read &read)
{
    extent = read.extent;
    shown = read.columns;
    // The colours follow the key, temperament and tuning as the trace's do.
    const ColumnSettings settings = ColumnSettings::current();
    colors.assign(shown.size(), QColor());
    lowPitch = 1e9;
    highPitch = -1e9;
    for (std::size_t k = 0; k < shown.size(); ++k) {
        const OverviewReducer::Column &c = shown[k];
        if (c.pitch <= 0.0)
            continue;
        lowPitch = std::min(lowPitch, c.pitch);
        highPitch = std::max(highPitch, c.pitch);
        const Rgba rgba = traceColor(settings.scale.deviation(c.pitch), settings.tuning, c.goodness,
                                     settings.goodnessThreshold);
        colors[k] = QColor::fromRgbF(rgba.r, rgba.g, rgba.b, rgba.a);
    }
    if (highPitch - lowPitch < kMinPitchSpan) {
        const double middle = highPitch >= lowPitch ? 0.5 * (lowPitch + highPitch) : 60.0;
        lowPitch = middle - 0.5 * kMinPitchSpan;
        highPitch = middle + 0.5 * kMinPitchSpan;
    }
    update();
    emit refreshed();
}

double OverviewStrip::timeAt(double x) const
{
    if (width() <= 0)
        return extent.lowestX;
    const double t = extent.lowestX + x / width() * extent.span();
    return std::clamp(t, extent.lowestX, extent.highestX);
}

double OverviewStrip::xOf(double timeSeconds) const
{
    if (!(extent.span() > 0.0))
        return 0.0;
    return (timeSeconds - extent.lowestX) / extent.span() * width();
}

std::pair<double, double> OverviewStrip::markedStretch() const
{
    const HView *h = timeView();
    if (!h)
        return {0.0, 0.0};
    const double left = std::max(0.0, xOf(h->leftTime));
    const double right = std::min(static_cast<double>(width()), xOf(h->leftTime + h->timeWidth));
    // Even a few seconds of an hour stay visible.
    return {left, std::max(right, left + 2.0)};
}

void OverviewStrip::jumpTo(double timeSeconds)
{
    HView *h = timeView();
    if (!h || h->timeWidth <= 0.0)
        return;
    h->setLeftTime(timeSeconds - 0.5 * h->timeWidth, trace.refreshExtent(), true);
    trace.redrawAll();
    update();
}

void OverviewStrip::mousePressEvent(QMouseEvent *event)
{
    // While playing or recording the trace follows the needle, as it does for its own clicks.
    if (event->button() != Qt::LeftButton || trace.playback().running())
        return;
    jumpTo(timeAt(event->position().x()));
}

void OverviewStrip::mouseMoveEvent(QMouseEvent *event)
{
    if (!(event->buttons() & Qt::LeftButton) || trace.playback().running())
        return;
    jumpTo(timeAt(event->position().x()));
}

void OverviewStrip::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    refreshTimer->start();
}

void OverviewStrip::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    const double w = width();
    const double h = height();
    painter.fillRect(rect(), Qt::black);
    // One point of pitch per column, the pitch axis running up over the sound's own range.
    const double usable = h - 4.0;
    const double perSemitone = usable / (highPitch - lowPitch);
    for (std::size_t k = 0; k < shown.size(); ++k) {
        if (shown[k].pitch <= 0.0)
            continue;
        const double y = 2.0 + (highPitch - shown[k].pitch) * perSemitone;
        painter.fillRect(QRectF(static_cast<double>(k), y - 1.0, 1.0, 2.0), colors[k]);
    }
    paintedMark = markedStretch();
    const auto [left, right] = paintedMark;
    painter.fillRect(QRectF(left, 0.0, right - left, h), QColor(255, 255, 255, 48));
    painter.setPen(QPen(QColor(255, 255, 255, 200), 1.0));
    painter.drawRect(QRectF(left + 0.5, 0.5, right - left - 1.0, h - 1.0));
    painter.setPen(kDarkGrey);
    painter.drawLine(QPointF(0.0, h - 0.5), QPointF(w, h - 0.5));
}

} // namespace quorval
