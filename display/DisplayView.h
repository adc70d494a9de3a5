#pragma once

#include "display/ScreenView.h"
#include "streams/DisplayColumnStream.h"

#include <QString>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace quorval {

class ColumnHeaderView;
class MyScroller;
class RowHeaderView;

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

// The trace area: draws the view type in force (composite, RMS amplitude, amplitude, pitch,
// quality or spectrum) with its grid, note lines, selection, needle and prompt; turns presses
// and drags into a playback start and a selection; carries the zooms, and keeps its scrollers
// and headers in step.
//
// Painting only draws what was computed: the columns (and the spectrum) are fetched on the data
// queue and posted back, one fetch at a time, repeated requests merged; paint never waits on a
// queue.
//
// What others call, all on the main thread:
//   - the window: setHeaders once; hZoom/hToggle/vZoom/vToggle from its zoom buttons (with
//     "Zoom increment" or its reciprocal); canHScrollOut()/canVScrollOut() and the signal
//     scrollOutChanged to enable them; setPromptMessage; hovered for its status bar.
//   - the player and recorder: Quorval::needleTime, Quorval::playing and Quorval::recording
//     (set them, then requestRedraw(), from any thread; while playing or recording the view
//     follows the needle); Quorval::playStartTime is set here by a press, announced by
//     playStartChanged; the selection is hView's selectionStart/selectionEnd, announced by
//     selectionChanged.
//   - anyone: requestRedraw() from any thread; requests merge into one redraw.
class DisplayView : public ScreenView
{
    Q_OBJECT

public:
    explicit DisplayView(QWidget *parent = nullptr);
    ~DisplayView() override;

    // Stores the headers and the scrollers (each optional) and connects them.
    void setHeaders(RowHeaderView *rowHeader, ColumnHeaderView *columnHeader,
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
    // Marks the data as changed and schedules a repaint. Main thread.
    void dataChanged();
    // Repaints the trace area and its headers with what is shown. Main thread.
    void redrawAll();

    // Fetches the columns (or the spectrum) for the present view now, waiting on the data
    // queue, so that the next paint draws complete data: for pictures and tests, never from a
    // paint. size: the canvas in points. False when there is nothing to draw.
    bool prepareNow(QSizeF size);

    // The extent of the data on the present horizontal axis, as last fetched.
    [[nodiscard]] HExtent extent() const;
    // Fetches the extent now (waits on the data queue). Not from a paint.
    HExtent refreshExtent();

    void paint(QPainter &painter, QSizeF size) override;

    // "leftTime %f, timeWidth %f\n" and the column stream's description.
    [[nodiscard]] QString description() const;

    // What the mouse at canvas x lies over. hovered tells it on every move (drags included) and
    // again whenever the view or its data change under a mouse that stays in the canvas.
    [[nodiscard]] HoverInfo hoverAt(double x) const;

    std::shared_ptr<DisplayColumnStream> columnStream;
    RowHeaderView *rowHeaderView = nullptr;
    ColumnHeaderView *columnHeaderView = nullptr;
    MyScroller *hScroller = nullptr;
    MyScroller *vScroller = nullptr;

    double minTraceHeight = 0.5; // smallest half-height of a trace stroke, points
    QColor backgroundColor = Qt::black;
    QColor needleColor = Qt::red;
    QColor volumeColor = Qt::white;
    double timeLineInc = 0.0; // time grid spacing of the last redraw

signals:
    void scrollOutChanged(bool canHScrollOut, bool canVScrollOut);
    // start < 0: no selection.
    void selectionChanged(double start, double end);
    void playStartChanged(double timeSeconds);
    void hovered(const HoverInfo &info);

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;
    void leaveEvent(QEvent *event) override;

private:
    // What the data queue hands back for a redraw.
    struct Snapshot
    {
        std::uint64_t generation = 0;
        std::shared_ptr<DataStream> data; // whose extent this is
        std::optional<HExtent> extent;
        std::shared_ptr<DisplayColumnStream> stream;
        std::int64_t first = 0;
        DisplayColumnStream::Fill fill;
        // The spectrum view's segment.
        std::vector<double> spectrum; // dB per bin
        double hzPerBin = 0.0;
        std::vector<std::pair<double, double>> peaks; // hertz, dB
        double pitch = 0.0;                           // note number of the segment; <= 0 none
        double goodness = 0.0;
        std::int64_t segment = -1;
        double segmentTime = 0.0;
    };
    struct Wanted
    {
        std::shared_ptr<DataStream> data;
        std::shared_ptr<DisplayColumnStream> stream;
        std::int64_t first = 0;
    };

    // Steps of a redraw before drawing: sizes, clamps, following the needle, the column stream.
    std::optional<Wanted> prepare(QSizeF size);
    [[nodiscard]] bool snapshotCurrent(const Wanted &wanted) const;
    void requestSnapshot(const Wanted &wanted);
    void takeShown(Snapshot snapshot);
    static Snapshot takeSnapshot(const Wanted &wanted, std::uint64_t generation, bool spectrum,
                                 const std::shared_ptr<MusicStream> &music);
    void updateScrollers();
    void applyHScroller(double position);
    void applyVScroller(double position);
    void pageH(int direction);
    void pageV(int direction);
    [[nodiscard]] double timeAt(double x) const;

    void paintGrid(QPainter &painter, const Geometry &g, double width);
    void paintNoteLines(QPainter &painter, const Geometry &g, double width) const;
    void paintColumns(QPainter &painter, const Geometry &g) const;
    void paintSpectrum(QPainter &painter, const Geometry &g) const;

    bool canHScrollOutValue = false;
    bool canVScrollOutValue = false;
    QString promptMessageText;
    Snapshot shown;
    std::uint64_t generation = 1;
    bool fetchInFlight = false;
    bool scrollerUpdatePosted = false;
    // Where the mouse last was over the canvas, for the hover read-out after the view moves.
    bool mouseInside = false;
    double lastMouseX = 0.0; // points
};

} // namespace quorval

Q_DECLARE_METATYPE(quorval::HoverInfo)
