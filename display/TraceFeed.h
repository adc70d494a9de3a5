#pragma once

#include "display/HeaderPainters.h"
#include "display/PlaybackState.h"
#include "display/TracePainters.h"
#include "display/TraceSnapshot.h"

#include <QObject>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace quorval {

class MusicStream;

// What the trace area and its headers paint, prepared away from painting: brings the axes to
// the canvas's size (and to the needle while playing or recording), keeps the column stream
// for the visible range, asks the sound for the spectrum at the needle in the spectrum view,
// fetches snapshots of the data from the data queue (one fetch at a time; `landed` says when
// one is in) and turns all of it into the Frame the painters are given.
//
// The needle and whether sound runs come from the playback state it is given (idle, with no
// needle, until then). Main thread only. The options it reads (trace height, gain control, note
// names, key labels, "A Frequency", the scale) are read here, never in a paint.
class TraceFeed : public QObject
{
    Q_OBJECT

public:
    // The axes of the sound for the view type shown, as ScreenView::setup takes them.
    struct Axes
    {
        HView &h;
        DataView &v;
        const std::shared_ptr<MusicStream> &music;
        ViewType type;
    };

    // What the painters are given, as last prepared; `drawn` is false when nothing is to be
    // drawn.
    struct Frame
    {
        bool drawn = false;
        Geometry geometry;
        ViewType viewType = ViewType::Composite;
        double acrossSpacing = 0.0; // lines down the canvas, which the ruler labels
        double valueStep = 0.0;     // lines across; 0 for none
        std::vector<GridLine> noteLines;
        bool noteNames = false; // each note line's name in the margin
        double selectionStart = -1.0;
        double selectionEnd = -1.0;
        double needleTime = -1.0; // < 0 or off the time axis: no needle
        ColumnTrace columns;
        SpectrumTrace spectrum;
        Keyboard::Labels keyLabels = Keyboard::Labels::Letters;
        Keyboard::WrittenNames writtenKeyNames;
    };

    // Sizes, clamps, following the needle, the column stream, then the frame; answers what
    // the shown snapshot must answer (fetch() it when it does not).
    std::optional<TraceRequest> prepare(const Axes &axes, QSizeF size);
    // Fetches request's snapshot on the data queue unless a fetch is under way.
    void fetch(const TraceRequest &request);
    // prepare() and the fetch, waiting for it: for pictures and tests, never from a paint.
    bool prepareNow(const Axes &axes, QSizeF size);
    // The data changed: the shown snapshot is stale.
    void dataChanged() { ++generation; }
    // A colouring option changed: the next prepare recolours the columns.
    void recolor() { recolorWanted = true; }
    // Nothing to draw.
    void clear() { prepared = Frame{}; }

    // The extent of view's data on its horizontal axis, as last fetched; refreshExtent fetches
    // it now (waits on the data queue).
    [[nodiscard]] HExtent extent(const DataView *view) const;
    HExtent refreshExtent(const DataView &view);

    [[nodiscard]] const Frame &frame() const { return prepared; }
    // The selection as h has it, without preparing anything else.
    void takeSelection(const HView &h);
    [[nodiscard]] const TraceSnapshot &shown() const { return shownSnapshot; }
    std::shared_ptr<DisplayColumnStream> columnStream;
    std::shared_ptr<const PlaybackState> playback = std::make_shared<PlaybackState>();

    double minTraceHeight = 0.5; // smallest half-height of a trace stroke, points
    QColor volumeColor = Qt::white;

signals:
    // A fetched snapshot is in; the extent of the data moved with it when extentMoved.
    void landed(bool extentMoved);

private:
    void prepareFrame();
    void takeShown(TraceSnapshot snapshot);

    // The axes of the last prepare.
    HView *hView = nullptr;
    DataView *dataView = nullptr;
    std::shared_ptr<MusicStream> musicStream;
    ViewType viewType = ViewType::Composite;

    TraceSnapshot shownSnapshot;
    Frame prepared;
    std::uint64_t generation = 1;
    bool fetchInFlight = false;
    bool recolorWanted = false;
};

} // namespace quorval
