#include "streams/DataView.h"

#include <gtest/gtest.h>

namespace quorval {
namespace {

TEST(DataView, newRangeKeepsAZoomedBandInsideItAndScrollingStaysWithinIt)
{
    DataView view;
    view.setRange(91.0, 55.0); // from nothing: the band is the whole range
    EXPECT_EQ(view.topY, 91.0);
    EXPECT_EQ(view.bottomY, 55.0);

    view.topY = 80.0;
    view.bottomY = 70.0;
    view.setRange(93.0, 53.0); // a zoomed band inside the new range stays
    EXPECT_EQ(view.topY, 80.0);
    EXPECT_EQ(view.bottomY, 70.0);
    EXPECT_EQ(view.maxY, 93.0);
    view.setRange(75.0, 53.0); // no longer inside: the whole range again
    EXPECT_EQ(view.topY, 75.0);
    EXPECT_EQ(view.bottomY, 53.0);

    view.topY = 70.0;
    view.bottomY = 60.0;
    view.scrollY(100.0); // clamped at the top
    EXPECT_EQ(view.topY, 75.0);
    EXPECT_EQ(view.bottomY, 65.0);
    view.scrollY(-100.0); // and at the bottom
    EXPECT_EQ(view.bottomY, 53.0);
    EXPECT_EQ(view.topY, 63.0);
}

TEST(DataView, verticalZoomKeepsZeroAndTogglesToTheWholeAndBack)
{
    DataView view;
    view.setRange(300.0, -100.0);
    view.vZoom(2.0); // zero is in view: it stays at a quarter of the height
    EXPECT_EQ(view.bottomY, -50.0);
    EXPECT_EQ(view.topY, 150.0);
    view.scrollY(200.0);
    view.vZoom(4.0); // zero out of view: about the middle
    EXPECT_EQ(view.topY - view.bottomY, 50.0);
    EXPECT_EQ((view.topY + view.bottomY) / 2.0, 200.0);
    EXPECT_TRUE(view.showsLessThanWhole());

    view.vToggle(true); // the whole, band saved
    EXPECT_EQ(view.topY, 300.0);
    EXPECT_EQ(view.bottomY, -100.0);
    view.vToggle(false); // and back
    EXPECT_EQ(view.topY, 225.0);
    EXPECT_EQ(view.bottomY, 175.0);

    view.topY = 100.2;
    view.bottomY = 99.9; // under a thousandth of the range: no narrower
    view.vZoom(2.0);
    EXPECT_EQ(view.topY, 100.2);
    EXPECT_EQ(view.bottomY, 99.9);
}

TEST(DataView, verticalScrollerPositionsMapToTheBandThroughTheClamps)
{
    DataView view;
    view.setRange(100.0, 0.0);
    view.topY = 60.0;
    view.bottomY = 40.0;
    EXPECT_DOUBLE_EQ(view.scrollerProportion(), 0.2);
    EXPECT_DOUBLE_EQ(view.scrollerPosition(), 0.5);
    view.setScrollerPosition(0.0); // the top
    EXPECT_EQ(view.topY, 100.0);
    EXPECT_EQ(view.bottomY, 80.0);
    view.setScrollerPosition(1.0);
    EXPECT_EQ(view.bottomY, 0.0);
    EXPECT_DOUBLE_EQ(view.scrollerPosition(), 1.0);
}

TEST(HView, leftEdgeIsClampedToTheDataWithRoomForGrowthOnATimeAxis)
{
    HView h;
    h.timeWidth = 10.0;
    const HExtent longData{0.0, 100.0, 10.0};
    h.setLeftTime(95.0, longData, false); // 20% of the width may run past the end
    EXPECT_EQ(h.leftTime, 92.0);
    EXPECT_FALSE(HView::needsScrollerUpdate);
    h.setLeftTime(-5.0, longData, true);
    EXPECT_EQ(h.leftTime, 0.0);
    EXPECT_TRUE(HView::needsScrollerUpdate);
    HView::needsScrollerUpdate = false;

    h.setLeftTime(3.0, HExtent{0.0, 5.0, 10.0}, false); // shorter than the view: at its start
    EXPECT_EQ(h.leftTime, 0.0);

    HView frequency;
    frequency.functionOfTime = false;
    frequency.timeWidth = 1000.0;
    frequency.setLeftTime(22000.0, HExtent{0.0, 22050.0, 10.0}, false); // no room past the end
    EXPECT_EQ(frequency.leftTime, 21050.0);

    h.followNeedle(99.0, longData); // the needle stays in the first 80%
    EXPECT_EQ(h.leftTime, 91.0);
    h.followNeedle(50.0, longData);
    EXPECT_EQ(h.leftTime, 50.0);
    HView::needsScrollerUpdate = false;
}

TEST(HView, zoomSequencesSnapToTheWholeAndToggleBack)
{
    const HExtent data{0.0, 100.0, 10.0};
    HView h;
    h.timeWidth = h.fullWidth(data);
    EXPECT_EQ(h.timeWidth, 125.0);
    EXPECT_FALSE(h.showsLessThanWhole(data));

    h.hZoom(2.0, data, 30.0); // about the needle, which is in view
    EXPECT_EQ(h.timeWidth, 62.5);
    EXPECT_EQ(h.leftTime, 15.0);
    EXPECT_TRUE(h.showsLessThanWhole(data));
    h.hZoom(2.0, data, 500.0); // needle out of view: about the middle
    EXPECT_EQ(h.timeWidth, 31.25);
    EXPECT_EQ(h.leftTime, 15.0 + 62.5 / 4.0);

    h.hZoom(0.25, data, 500.0); // past the whole: snaps to it and saves the view it left
    EXPECT_EQ(h.timeWidth, 125.0);
    EXPECT_EQ(h.saveTimeWidth, 31.25);
    h.hZoom(0.5, data, 500.0); // already whole: the saved view stays
    EXPECT_EQ(h.saveTimeWidth, 31.25);
    h.hToggle(false, data);
    EXPECT_EQ(h.timeWidth, 31.25);
    EXPECT_EQ(h.leftTime, 15.0 + 62.5 / 4.0);
    h.hToggle(true, data);
    EXPECT_EQ(h.timeWidth, 125.0);
    EXPECT_EQ(h.leftTime, 0.0);
    h.hToggle(false, data); // the saved pair is kept: the toggle repeats
    EXPECT_EQ(h.timeWidth, 31.25);

    h.selectionStart = h.selectionEnd = 40.0; // a selection of no length is ignored
    h.hZoom(2.0, data, -1.0);
    EXPECT_EQ(h.timeWidth, 15.625);
    h.selectionStart = 20.0;
    h.selectionEnd = 30.0;
    h.hZoom(2.0, data, -1.0); // zooms to the selection and clears it
    EXPECT_EQ(h.timeWidth, 10.0);
    EXPECT_EQ(h.leftTime, 20.0);
    EXPECT_FALSE(h.hasSelection());

    h.timeWidth = 0.00015; // the smallest span is not crossed
    h.hZoom(2.0, data, -1.0);
    EXPECT_EQ(h.timeWidth, 0.00015);
    HView::needsScrollerUpdate = false;
}

TEST(HView, scrollerPositionsSpanTheDataAndRoomForGrowth)
{
    const HExtent data{0.0, 100.0, 10.0};
    HView h;
    h.timeWidth = 10.0;
    EXPECT_EQ(h.scrollableWidth(data), 102.0);
    EXPECT_DOUBLE_EQ(h.scrollerProportion(data), 10.0 / 102.0);
    h.setScrollerPosition(1.0, data);
    EXPECT_EQ(h.leftTime, 92.0);
    EXPECT_DOUBLE_EQ(h.scrollerPosition(data), 1.0);
    h.setScrollerPosition(0.5, data);
    EXPECT_DOUBLE_EQ(h.leftTime, 46.0);
    // A short sound still scrolls over the preferred length.
    EXPECT_EQ(h.scrollableWidth(HExtent{0.0, 2.0, 10.0}), 10.0);
}

} // namespace
} // namespace quorval
