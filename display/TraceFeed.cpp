#include "display/TraceFeed.h"

#include "options/Parameters.h"
#include "scale/Scale.h"
#include "streams/Axis.h"
#include "streams/MusicStream.h"
#include "streams/Quorval.h"

#include <QPointer>

#include <algorithm>
#include <cmath>
#include <utility>

namespace quorval {

namespace {

// A spectrum shown first spans this much, so that the harmonics of a sung or played note stand
// apart; zooming out shows the rest.
constexpr double kFirstSpectrumWidthHz = 5000.0;

Keyboard::Labels keyLabelsOf(const QString &labelling)
{
    if (labelling == QLatin1String("Numbers"))
        return Keyboard::Labels::Numbers;
    if (labelling == QLatin1String("None") || labelling.isEmpty())
        return Keyboard::Labels::None;
    return Keyboard::Labels::Letters;
}

// "A4 +12 cents" of a note number, in the scale's names.
QString noteAndCents(const Scale &scale, double pitch)
{
    const double deviation = scale.deviation(pitch);
    return QStringLiteral("%1 %2%3 cents")
        .arg(scale.noteNameWithOctave(scale.nearestLine(pitch)))
        .arg(deviation >= 0.0 ? QStringLiteral("+") : QString())
        .arg(deviation * 100.0, 0, 'f', 0);
}

} // namespace

HExtent TraceFeed::extent(const DataView *view) const
{
    HExtent e;
    if (view && shownSnapshot.extent && shownSnapshot.data == view->data)
        e = *shownSnapshot.extent;
    e.preferredLength = Parameters::shared().preferredDisplayLength.value();
    e.growing = playback->recording;
    return e;
}

HExtent TraceFeed::refreshExtent(const DataView &view)
{
    if (!view.data)
        return extent(&view);
    const std::shared_ptr<DataStream> data = view.data;
    const HExtent fetched = Quorval::dataQueue().sync([&data] {
        return HExtent{data->minimumX_D(), data->maximumX_D(), 0.0};
    });
    if (shownSnapshot.data == data)
        shownSnapshot.extent = fetched;
    HExtent e = fetched;
    e.preferredLength = Parameters::shared().preferredDisplayLength.value();
    e.growing = playback->recording;
    return e;
}

std::optional<TraceRequest> TraceFeed::prepare(const Axes &axes, QSizeF size)
{
    hView = &axes.h;
    dataView = &axes.v;
    musicStream = axes.music;
    viewType = axes.type;
    HView &h = axes.h;
    DataView &v = axes.v;
    h.canvasWidth = size.width();
    v.canvasHeight = size.height();
    const bool known = shownSnapshot.extent && shownSnapshot.data == v.data;
    const HExtent e = extent(&v);
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
        if (h.functionOfTime && playback->running())
            h.followNeedle(playback->needleTime, e);
    }
    // The spectrum view shows the segment at the needle, whatever the calculation is doing.
    musicStream->showSpectrumAt(viewType == ViewType::Spectrum ? playback->needleTime.load()
                                                               : -1.0);

    TraceRequest request;
    request.data = v.data;
    if (viewType != ViewType::Spectrum && h.timeWidth > 0.0) {
        const auto columns = static_cast<std::int64_t>(std::max(0.0, std::floor(h.canvasWidth)));
        if (!columnStream || columnStream->size != columns ||
            columnStream->timeWidth != h.timeWidth || columnStream->musicStream != musicStream) {
            columnStream = DisplayColumnStream::create(musicStream, columns, h.timeWidth);
            Quorval::setVisibleSegmentSource(columnStream);
            recolorWanted = false;
            musicStream->requestCalculation();
        } else if (std::exchange(recolorWanted, false)) {
            columnStream->recolor(ColumnSettings::current());
            ++generation;
        }
        request.stream = columnStream;
        const double first = std::floor(h.leftTime / columnStream->xScale - columnStream->overlap);
        request.first = std::isfinite(first) ? static_cast<std::int64_t>(std::max(0.0, first)) : 0;
    }
    prepareFrame();
    return request;
}

void TraceFeed::prepareFrame()
{
    Frame f;
    if (!hView || !dataView || !musicStream) {
        prepared = f;
        return;
    }
    const HView &h = *hView;
    const DataView &v = *dataView;
    Parameters &options = Parameters::shared();
    f.drawn = true;
    f.viewType = viewType;
    f.geometry = Geometry::of(h, v);
    // The ruler's spacing: the lines stand at the times it labels.
    f.acrossSpacing = Ruler::lineSpacing(f.geometry, h.xGridSize, h.functionOfTime,
                                         viewType == ViewType::Spectrum);
    f.keyLabels = keyLabelsOf(options.pianoKeyLabelling());
    // A transposing instrument reads its written names on the keys.
    if (const Scale scale = Scale::current(); scale.settings().transposition != 0)
        for (std::size_t pc = 0; pc < f.writtenKeyNames.size(); ++pc)
            f.writtenKeyNames[pc] = scale.noteName(60 + static_cast<qint64>(pc));
    if (viewType == ViewType::Composite) {
        const Scale scale = Scale::current();
        f.noteLines = scale.gridLines(std::ceil(v.bottomY), std::floor(v.topY));
        f.noteNames = options.showNoteNamesOnGrid.value();
    } else {
        f.valueStep = plainGridSize(v.pixelHeight * v.yGridSize);
    }
    if (h.hasSelection()) {
        f.selectionStart = h.selectionStart;
        f.selectionEnd = h.selectionEnd;
    }
    if (h.functionOfTime)
        f.needleTime = playback->needleTime;

    if (viewType == ViewType::Spectrum) {
        SpectrumTrace &s = f.spectrum;
        s.spectrum = &shownSnapshot.spectrum;
        s.hzPerBin = shownSnapshot.hzPerBin;
        s.peaks = &shownSnapshot.peaks;
        s.volumeColor = volumeColor;
        // Which segment this is and what it got.
        s.caption =
            QStringLiteral("Segment at %1")
                .arg(QString::fromStdString(rulerLabel(shownSnapshot.segmentTime, 0.01).text));
        if (shownSnapshot.pitch > 0.0) {
            s.fundamentalHz = Scale::frequency(shownSnapshot.pitch, options.aFrequency.value());
            s.caption += QStringLiteral(": %1, %2 Hz, goodness %3")
                             .arg(noteAndCents(Scale::current(), shownSnapshot.pitch))
                             .arg(s.fundamentalHz, 0, 'f', 1)
                             .arg(shownSnapshot.goodness, 0, 'f', 0);
        } else if (shownSnapshot.segment >= 0) {
            s.caption += QStringLiteral(": no pitch");
        } else {
            s.caption.clear();
        }
        prepared = f;
        return;
    }
    if (!shownSnapshot.stream || shownSnapshot.stream != columnStream) {
        prepared = f;
        return;
    }
    ColumnTrace &c = f.columns;
    c.viewType = viewType;
    c.columns = &shownSnapshot.fill.columns;
    c.first = static_cast<std::int64_t>(
        std::max(0.0, std::floor(h.leftTime / columnStream->xScale - columnStream->overlap)));
    c.minTraceHeight = minTraceHeight;
    c.volumeColor = volumeColor;
    c.thickness = options.traceHeight.value() * 40.0;
    c.volumeScale = 32768.0;
    if (viewType == ViewType::Composite && options.automaticGainControl.value()) {
        double loudest = 0.0;
        for (const ColumnValues &column : shownSnapshot.fill.columns)
            loudest = std::max(loudest, column.rmsVolume);
        if (loudest > 0.0)
            c.volumeScale = loudest;
    }
    prepared = f;
}

void TraceFeed::fetch(const TraceRequest &request)
{
    // One fetch at a time: when it lands, the redraw it asks for fetches again if still stale.
    if (fetchInFlight || shownSnapshot.answers(request, generation))
        return;
    fetchInFlight = true;
    QPointer<TraceFeed> self(this);
    std::shared_ptr<MusicStream> spectrumOf =
        viewType == ViewType::Spectrum ? musicStream : nullptr;
    Quorval::dataQueue().async([self, request, gen = generation, spectrumOf] {
        auto snapshot =
            std::make_shared<TraceSnapshot>(TraceSnapshot::take_D(request, gen, spectrumOf));
        Quorval::postToMain([self, snapshot] {
            if (!self)
                return;
            self->fetchInFlight = false;
            const bool extentMoved =
                !self->shownSnapshot.extent || !snapshot->extent ||
                self->shownSnapshot.extent->highestX != snapshot->extent->highestX;
            self->takeShown(std::move(*snapshot));
            emit self->landed(extentMoved);
        });
    });
}

void TraceFeed::takeShown(TraceSnapshot snapshot)
{
    shownSnapshot = std::move(snapshot);
    // Goodness has no upper bound: the quality view's range grows to take what it shows.
    if (viewType == ViewType::Quality && dataView) {
        double best = 0.0;
        for (const ColumnValues &column : shownSnapshot.fill.columns)
            best = std::max(best, column.goodness);
        if (best > dataView->maxY) {
            dataView->setRange(plainGridSize(best), dataView->minY);
            HView::needsScrollerUpdate = true;
        }
    }
}

bool TraceFeed::prepareNow(const Axes &axes, QSizeF size)
{
    // Twice: the first fetch may bring the extent that sets the view's width.
    for (int round = 0; round < 2; ++round) {
        const std::optional<TraceRequest> request = prepare(axes, size);
        if (!request)
            return false;
        if (round > 0 && shownSnapshot.answers(*request, generation))
            break;
        std::shared_ptr<MusicStream> spectrumOf =
            viewType == ViewType::Spectrum ? musicStream : nullptr;
        takeShown(Quorval::dataQueue().sync(
            [&] { return TraceSnapshot::take_D(*request, generation, spectrumOf); }));
    }
    // The sizes the snapshot may have moved (a quality range grown) are those painted.
    (void)prepare(axes, size);
    return true;
}

void TraceFeed::takeSelection(const HView &h)
{
    const bool has = h.hasSelection();
    prepared.selectionStart = has ? h.selectionStart : -1.0;
    prepared.selectionEnd = has ? h.selectionEnd : -1.0;
}

} // namespace quorval
