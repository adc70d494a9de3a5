#pragma once

#include "display/ScreenView.h"
#include "display/TraceFeed.h"
#include "streams/DisplayColumnStream.h"

#include <QString>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace quorval {

class MyScroller;

// What lies under the mouse in the trace area, for a status bar.
struct HoverInfo
{
    double timeSeconds = 0.0; // or hertz on the spectrum's axis
    bool pitched = false;     // the column under the mouse has a pitch
    double pitch = 0.0;       // note number
    QString noteName;         // e.g. "A4"
    double cents = 0.0;       // deviation from the nearest line of the scale, + sharp
    double goodness = 0.0;
    QString text; // all of it on one line, as the status bar shows it
};

// The trace area's canvas: turns presses and drags into a playback start and a selection,
// carries the zooms and the scrolling, and keeps its scrollers and headers in step. It draws
// the sound and view type its owner hands it (setSound, setViewType) with the painters of
// TracePainters.h.
//
// Painting only paints: the axes, the column stream and what the painters are given are
// prepared on resize, zoom, scroll, data change and a new sound or view type (redrawAll); the
// columns (and the spectrum) are fetched on the data queue and posted back, one fetch at a
// time, repeated requests merged; paint never waits on a queue and changes nothing.
//
// What others call, all on the main thread:
//   - the window: setSound and setViewType; setHeaders once; hZoom/hToggle/vZoom/vToggle from
//     its zoom buttons; canHScrollOut()/canVScrollOut() and the signal scrollOutChanged to
//     enable them; setPromptMessage; hovered for its status bar.
//   - the player and recorder: Quorval::needleTime, Quorval::playing and Quorval::recording
//     (set them, then requestRedraw(), from any thread; while playing or recording the view
//     follows the needle); a press announces the next play's start by playStartChanged; the
//     selection is hView's selectionStart/selectionEnd, announced by selectionChanged.
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

    // Stores the headers and the scrollers (each optional) and connects them.
    void setHeaders(ScreenView *rowHeader, ScreenView *columnHeader,
                    MyScroller *hScroller = nullptr, MyScroller *vScroller = nullptr);

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
    // The column stream of the visible range, as last prepared.
    [[nodiscard]] const std::shared_ptr<DisplayColumnStream> &columnStream() const
    {
        return feed.columnStream;
    }

    // "leftTime %f, timeWidth %f\n" and the column stream's description.
    [[nodiscard]] QString description() const;

    // What the mouse at canvas x lies over. hovered tells it on every move (drags included) and
    // again whenever the view or its data change under a mouse that stays in the canvas.
    [[nodiscard]] HoverInfo hoverAt(double x) const;

    ScreenView *rowHeaderView = nullptr;
    ScreenView *columnHeaderView = nullptr;
    MyScroller *hScroller = nullptr;
    MyScroller *vScroller = nullptr;

    QColor backgroundColor = Qt::black;
    QColor needleColor = Qt::red;

signals:
    void scrollOutChanged(bool canHScrollOut, bool canVScrollOut);
    // start < 0: no selection.
    void selectionChanged(double start, double end);
    void playStartChanged(double timeSeconds);
    void hovered(const HoverInfo &info);
    // The data were marked changed (a burst of results marks it many times).
    void dataMarkedChanged();
    // The axes were prepared for a redraw: the view may have moved.
    void prepared();

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;
    void leaveEvent(QEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void showEvent(QShowEvent *event) override;

private:
    // Prepares for a canvas of size; nothing when there is nothing to draw.
    std::optional<TraceRequest> prepare(QSizeF size);
    [[nodiscard]] TraceFeed::Axes axes() const;
    // What redrawAll posts: prepare for the canvas as it is, fetch, repaint.
    void prepareShown();
    // The selection as hView has it, drawn without preparing anything else.
    void showSelection();
    void updateScrollers();
    void applyHScroller(double position);
    void applyVScroller(double position);
    void pageH(int direction);
    void pageV(int direction);
    [[nodiscard]] double timeAt(double x) const;

    TraceSource shownSource;
    bool canHScrollOutValue = false;
    bool canVScrollOutValue = false;
    QString promptMessageText;
    TraceFeed feed;
    bool scrollerUpdatePosted = false;
    bool preparePosted = false;
    // Where the mouse last was over the canvas, for the hover read-out after the view moves.
    bool mouseInside = false;
    double lastMouseX = 0.0; // points
};

} // namespace quorval

Q_DECLARE_METATYPE(quorval::HoverInfo)
