#include "display/TraceScrollers.h"

#include "display/DisplayView.h"
#include "display/MyScroller.h"

namespace quorval {

TraceScrollers::TraceScrollers(DisplayView &moved, MyScroller *horizontal, MyScroller *vertical)
    : QObject(&moved), view(moved), h(horizontal), v(vertical)
{
    connect(&view, &DisplayView::scrollersStale, this, &TraceScrollers::refresh);
    if (h) {
        connect(h, &MyScroller::positionChanged, this, &TraceScrollers::applyH);
        connect(h, &MyScroller::pageRequested, this, &TraceScrollers::pageH);
    }
    if (v) {
        connect(v, &MyScroller::positionChanged, this, &TraceScrollers::applyV);
        connect(v, &MyScroller::pageRequested, this, &TraceScrollers::pageV);
    }
}

void TraceScrollers::refresh()
{
    if (!view.bindAxes())
        return;
    const HView &time = *view.hView;
    const DataView &values = *view.dataView;
    const HExtent e = view.extent();
    if (h) {
        h->setVisible(view.canHScrollOut());
        if (view.canHScrollOut())
            h->setKnob(time.scrollerProportion(e), time.scrollerPosition(e));
    }
    if (v) {
        v->setVisible(view.canVScrollOut());
        if (view.canVScrollOut())
            v->setKnob(values.scrollerProportion(), values.scrollerPosition());
    }
}

void TraceScrollers::applyH(double position)
{
    if (!view.bindAxes())
        return;
    view.hView->setScrollerPosition(position, view.extent());
    view.redrawAll();
}

void TraceScrollers::applyV(double position)
{
    if (!view.bindAxes())
        return;
    view.dataView->setScrollerPosition(position);
    view.redrawAll();
}

void TraceScrollers::pageH(int direction)
{
    if (!view.bindAxes())
        return;
    HView &time = *view.hView;
    time.setLeftTime(time.leftTime + 0.5 * direction * time.timeWidth, view.refreshExtent(), true);
    view.redrawAll();
}

void TraceScrollers::pageV(int direction)
{
    if (!view.bindAxes())
        return;
    DataView &values = *view.dataView;
    // Towards the top (direction -1) raises the band.
    values.scrollY(-0.5 * direction * (values.topY - values.bottomY));
    HView::needsScrollerUpdate = true;
    view.redrawAll();
}

} // namespace quorval
