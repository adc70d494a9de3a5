#pragma once

#include "streams/DataView.h"

#include <QObject>
#include <QString>

class QMouseEvent;
class QWheelEvent;

namespace quorval {

class DisplayView;

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

// The mouse over a trace area's canvas: a press puts the next play's start there (announced by
// playStartChanged) and clears the selection, a drag selects (within the data; nothing while
// sound plays or records), the wheel scrolls in time and with Ctrl zooms. hovered tells what
// lies under the mouse on every move, drags included, and again whenever the view or its data
// move under a mouse that stays in the canvas, at the cursor's position. A child of the view
// it watches. Main thread only.
class TracePointer : public QObject
{
    Q_OBJECT

public:
    explicit TracePointer(DisplayView &view);

    // What the mouse at canvas x lies over, as the view was last prepared.
    [[nodiscard]] HoverInfo hoverAt(double x) const;

signals:
    void playStartChanged(double timeSeconds);
    void hovered(const HoverInfo &info);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void press(const QMouseEvent &event);
    void move(const QMouseEvent &event);
    void wheel(const QWheelEvent &event);
    // The view moved under the mouse: tell what now lies under it.
    void viewMoved();
    // The time (or frequency) at canvas x; clamped: within e.
    [[nodiscard]] double timeAt(double x) const;
    [[nodiscard]] double clampedTimeAt(double x, const HExtent &e) const;

    DisplayView &view;
    bool mouseInside = false;
};

} // namespace quorval

Q_DECLARE_METATYPE(quorval::HoverInfo)
