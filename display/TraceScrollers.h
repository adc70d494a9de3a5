#pragma once

#include <QObject>

namespace quorval {

class DisplayView;
class MyScroller;

// The two scrollers of a trace area: each is shown while the view shows less than the whole
// along its axis, with a knob for the part shown; a knob drag or a page press moves the view.
// Either scroller may be null. A child of the view it moves. Main thread only.
class TraceScrollers : public QObject
{
    Q_OBJECT

public:
    TraceScrollers(DisplayView &view, MyScroller *horizontal, MyScroller *vertical);

private:
    // Shows, hides and sets the knobs as the view's axes now stand.
    void refresh();
    void applyH(double position);
    void applyV(double position);
    void pageH(int direction);
    void pageV(int direction);

    DisplayView &view;
    MyScroller *h;
    MyScroller *v;
};

} // namespace quorval
