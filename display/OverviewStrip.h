#pragma once

#include "streams/DataView.h"

#include <QColor>
#include <QWidget>

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

class QTimer;

namespace quorval {

class DisplayView;
class MusicStream;

// The whole sound's pitches brought down to a few columns: each column keeps the pitch of its
// best segment (highest goodness among those with a pitch), so a column that spans a note and a
// breath shows the note. Any thread.
class OverviewReducer
{
public:
    struct Column
    {
        double pitch = 0.0; // note number; <= 0: no pitch in the column
        double goodness = 0.0;
    };

    // columns >= 0 over the time span [startSeconds, startSeconds + spanSeconds), for segments
    // segmentSeconds apart.
    OverviewReducer(double startSeconds, double spanSeconds, int columns, double segmentSeconds);

    // A segment starting at timeSeconds, which stands for the columns up to the next segment's
    // start (more than one when columns are finer than segments); what lies outside the span
    // and segments without a pitch (<= 0) leave the columns alone.
    void add(double timeSeconds, double pitch, double goodness);

    [[nodiscard]] const std::vector<Column> &columns() const { return result; }

private:
    double start;
    double span;
    double segment;
    std::vector<Column> result;
};

// A thin strip above the ruler with the whole sound's pitch trace, coloured as the trace is,
// and the stretch the trace shows marked; a click (or a drag) centres the trace on the time
// under the mouse. It shows only while the trace shows less than the whole sound, so a short
// sound that fits the view has no strip.
//
// The pitches are the analysis's results, read on the data queue without analysing anything:
// a burst of results (the analysis running, a recording growing) costs one read per
// kRefreshMs, and painting only draws what the last read prepared.
//
// Main thread only. The trace it follows outlives it.
class OverviewStrip : public QWidget
{
    Q_OBJECT

public:
    static constexpr int kHeight = 26;     // points
    static constexpr int kRefreshMs = 250; // longest wait for new results to show

    explicit OverviewStrip(DisplayView &trace, QWidget *parent = nullptr);

    // The time at strip x (points) and the strip x of a time, over the data as last fetched.
    [[nodiscard]] double timeAt(double x) const;
    [[nodiscard]] double xOf(double timeSeconds) const;
    // The stretch of the trace's view, in strip points: [left, right).
    [[nodiscard]] std::pair<double, double> markedStretch() const;
    // The columns as last read, one per point of the strip's width.
    [[nodiscard]] const std::vector<OverviewReducer::Column> &columns() const { return shown; }
    // Reads the results now, waiting on the data queue: for pictures and tests.
    void refreshNow();

    // Centres the trace's view on timeSeconds (within the data) and redraws it.
    void jumpTo(double timeSeconds);

    QSize sizeHint() const override;

signals:
    // A read of the results is in and the strip repainted.
    void refreshed();

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    struct Read;
    // What the next read needs, taken on the main thread.
    [[nodiscard]] std::shared_ptr<Read> startRead();
    static void read_D(Read &read);
    void take(const Read &read);
    void fetch();
    void follow();
    [[nodiscard]] HView *timeView() const;

    DisplayView &trace;
    QTimer *refreshTimer;
    bool fetchInFlight = false;
    bool fetchAgain = false;
    HExtent extent;
    std::vector<OverviewReducer::Column> shown;
    std::vector<QColor> colors;
    double lowPitch = 0.0; // the pitches drawn span lowPitch .. highPitch
    double highPitch = 0.0;
    std::pair<double, double> paintedMark{-1.0, -1.0};
};

} // namespace quorval
