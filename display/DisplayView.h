#pragma once

#include "display/PlaybackState.h"
#include "display/ScreenView.h"
#include "display/TraceFeed.h"
#include "streams/DisplayColumnStream.h"

#include <QString>

#include <memory>
#include <optional>

namespace quorval {

// The trace area's canvas: draws the sound and view type its owner hands it (setSound,
// setViewType) with the painters of TracePainters.h, carries the zooms and the scrolling, and
// keeps its headers in step. Its scrollers are TraceScrollers', the mouse TracePointer's.
//
// Painting only paints: the axes, the column stream and what the painters are given are
// prepared on resize, zoom, scroll, data change and a new sound or view type (redrawAll); the
// columns (and the spectrum) are fetched on the data queue and posted back, one fetch at a
// time, repeated requests merged; paint never waits on a queue and changes nothing.
//
// What others call, all on the main thread:
//   - the window: setSound, setViewType and setPlayback; setHeaders once; hZoom/hToggle/vZoom/
//     vToggle from its zoom buttons; canHScrollOut()/canVScrollOut() and the signal
//     scrollOutChanged to enable them; setPromptMessage.
//   - the transport, through the playback state: while sound runs the view follows the needle
//     (it asks for a redraw with requestRedraw(), from any thread); the selection is hView's
//     selectionStart/selectionEnd, announced by selectionChanged.
//   - anyone: requestRedraw() from any thread; requests merge into one redraw.
class DisplayView : public ScreenView
{
    Q_OBJECT

public:
    explicit DisplayView(QWidget *parent = nullptr);
    ~DisplayView() override;

    // The sound drawn (none: nothing is drawn) and the view type it is drawn in.
    void setSound(std::shared_ptr<MusicStream> music);
    void setViewType(ViewType type);
    [[nodiscard]] const std::shared_ptr<MusicStream> &sound() const { return shownSource.music; }
    [[nodiscard]] ViewType shownViewType() const { return shownSource.viewType; }
    // The needle and whether sound runs; idle with no needle until given.
    void setPlayback(std::shared_ptr<const PlaybackState> state);
    [[nodiscard]] const PlaybackState &playback() const { return *feed.playback; }

    // Stores the headers (each optional) and binds them to what this view draws.
    void setHeaders(ScreenView *rowHeader, ScreenView *columnHeader);

    // Zoom and its undo, as the zoom buttons use them (factor > 1 zooms in).
    void hZoom(double factor);
    void hToggle();
    void vZoom(double factor);
    void vToggle();
    // The view shows less than the whole in time (or frequency) / in height.
    [[nodiscard]] bool canHScrollOut() const { return canHScrollOutValue; }
    [[nodiscard]] bool canVScrollOut() const { return canVScrollOutValue; }

    // A line of text over the canvas; empty for none.
    void setPromptMessage(const QString &message);
    [[nodiscard]] const QString &promptMessage() const { return promptMessageText; }

    // Asks for a redraw of the trace area and its headers with fresh data. Any thread.
    static void requestRedraw();
    // Marks the data as changed and redraws. Main thread.
    void dataChanged();
    // Prepares what is shown (when on screen) and repaints the trace area and its headers.
    void redrawAll();

    // Prepares for a canvas of size points and fetches the columns (or the spectrum) now,
    // waiting on the data queue, so that the next paint draws complete data: for pictures and
    // tests, never from a paint. False when there is nothing to draw.
    bool prepareNow(QSizeF size);

    // The extent of the data on the present horizontal axis, as last fetched.
    [[nodiscard]] HExtent extent() const;
    // Fetches the extent now (waits on the data queue). Not from a paint.
    HExtent refreshExtent();

    void paint(QPainter &painter, QSizeF size) override;

    // What the painters are given, as last prepared; the headers paint from it too.
    [[nodiscard]] const TraceFeed::Frame &frame() const { return feed.frame(); }
    // The data fetched last, which the frame draws.
    [[nodiscard]] const TraceSnapshot &shownSnapshot() const { return feed.shown(); }
    // The column stream of the visible range, as last prepared.
    [[nodiscard]] const std::shared_ptr<DisplayColumnStream> &columnStream() const
    {
        return feed.columnStream;
    }

    // Sets hView's selection (start < 0: none), announces it and draws it.
    void select(double start, double end);

    ScreenView *rowHeaderView = nullptr;
    ScreenView *columnHeaderView = nullptr;

    QColor backgroundColor = Qt::black;
    QColor needleColor = Qt::red;

signals:
    void scrollOutChanged(bool canHScrollOut, bool canVScrollOut);
    // The part of the whole shown moved: the scrollers' knobs follow.
    void scrollersStale();
    // start < 0: no selection.
    void selectionChanged(double start, double end);
    // The view moved (a zoom, a scroll, a new size, sound or view type) or its columns were
    // replaced by another stream's: what lies under a still mouse may have changed. Not on
    // redraws that move nothing.
    void viewMoved();
    // The data were marked changed (a burst of results marks it many times).
    void dataMarkedChanged();
    // The axes were prepared for a redraw: the view may have moved.
    void prepared();

protected:
    void resizeEvent(QResizeEvent *event) override;
    void showEvent(QShowEvent *event) override;

private:
    // Prepares for a canvas of size; nothing when there is nothing to draw.
    std::optional<TraceRequest> prepare(QSizeF size);
    [[nodiscard]] TraceFeed::Axes axes() const;
    // What redrawAll posts: prepare for the canvas as it is, fetch, repaint.
    void prepareShown();
    // Whether the view shows less than the whole, posted after a preparation that moved it.
    void updateScrollOut();
    // Emits viewMoved when the view no longer stands where it last announced.
    void announceIfMoved();

    // What decides what lies under a point of the canvas.
    struct Place
    {
        const HView *h = nullptr;
        const DataView *data = nullptr;
        const DisplayColumnStream *columns = nullptr;
        double leftTime = 0.0;
        double timeWidth = 0.0;
        double canvasWidth = 0.0;
        double topY = 0.0;
        double bottomY = 0.0;
        std::uint64_t generation = 0; // of the data shown
        bool operator==(const Place &) const = default;
    };

    TraceSource shownSource;
    bool canHScrollOutValue = false;
    bool canVScrollOutValue = false;
    QString promptMessageText;
    TraceFeed feed;
    bool scrollerUpdatePosted = false;
    bool preparePosted = false;
    std::optional<Place> announcedPlace;
};

} // namespace quorval
