#include "display/ColumnHeaderView.h"
#include "display/MyScroller.h"
#include "display/RowHeaderView.h"
#include "display/TraceArea.h"
#include "display/TracePointer.h"
#include "display/tests/Sounds.h"
#include "streams/MusicStream.h"
#include "streams/PitchStream.h"
#include "streams/tests/Tones.h"

#include <QApplication>
#include <QSignalSpy>
#include <QTest>
#include <QWheelEvent>

#include <gtest/gtest.h>

namespace quorval {
namespace {

using test::ShownSound;
using test::toneAt;

constexpr int kTimeout = 10000;

// A trace area on screen over a 4-second A4, painted with its columns in.
class Mouse : public ::testing::Test
{
protected:
    Mouse() : shown(toneAt(69.0, 4.0), ViewType::Composite)
    {
        shown.showIn(area);
        area.resize(660, 424);
        area.show();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(&area));
        EXPECT_TRUE(QTest::qWaitFor([this] { return hView().pixelWidth > 0.0; }, kTimeout));
    }

    HView &hView() { return *shown.music().timeView; }
    DisplayView &display() { return *area.displayView; }
    // Canvas x of time t.
    QPoint at(double t, int y = 100)
    {
        return {static_cast<int>((t - hView().leftTime) / hView().pixelWidth), y};
    }

    ShownSound shown;
    TraceArea area;
};

TEST_F(Mouse, pressSetsThePlayStartAndDragSelectsWithinTheData)
{
    QSignalSpy starts(area.pointer, &TracePointer::playStartChanged);
    QSignalSpy selections(&display(), &DisplayView::selectionChanged);
    const double perPoint = hView().pixelWidth;
    // The composite view's data are the pitch segments, whose last starts before the sound ends.
    const double end = shown.music().pitchStream()->maximumX();
    ASSERT_GT(end, 3.9);

    QTest::mousePress(&display(), Qt::LeftButton, {}, at(1.0));
    ASSERT_EQ(starts.count(), 1);
    EXPECT_NEAR(starts.last().at(0).toDouble(), 1.0, perPoint);
    EXPECT_FALSE(hView().hasSelection());
    QTest::mouseMove(&display(), at(2.0));
    QTest::mouseRelease(&display(), Qt::LeftButton, {}, at(2.0));
    EXPECT_NEAR(hView().selectionStart, 1.0, perPoint);
    EXPECT_NEAR(hView().selectionEnd, 2.0, perPoint);
    ASSERT_FALSE(selections.isEmpty());
    EXPECT_NEAR(selections.last().at(1).toDouble(), 2.0, perPoint);

    // Backwards, and past the end of the sound: the selection stops at the end.
    QTest::mousePress(&display(), Qt::LeftButton, {}, at(3.0));
    QTest::mouseMove(&display(), at(7.0));
    QTest::mouseRelease(&display(), Qt::LeftButton, {}, at(7.0));
    EXPECT_NEAR(hView().selectionStart, 3.0, perPoint);
    EXPECT_EQ(hView().selectionEnd, end);

    // A click without a drag clears the selection; one past the end starts play at the end.
    QTest::mouseClick(&display(), Qt::LeftButton, {}, at(8.0));
    EXPECT_FALSE(hView().hasSelection());
    EXPECT_EQ(starts.last().at(0).toDouble(), end);

    // While playing, presses and drags change nothing.
    shown.playback->playing = true;
    QTest::mousePress(&display(), Qt::LeftButton, {}, at(0.5));
    QTest::mouseMove(&display(), at(1.5));
    QTest::mouseRelease(&display(), Qt::LeftButton, {}, at(1.5));
    shown.playback->playing = false;
    EXPECT_FALSE(hView().hasSelection());
    EXPECT_EQ(starts.count(), 3);
}

TEST_F(Mouse, hoverTellsTheNoteAndItsDeviation)
{
    QSignalSpy hovers(area.pointer, &TracePointer::hovered);
    ASSERT_TRUE(
        QTest::qWaitFor([this] { return area.pointer->hoverAt(at(2.0).x()).pitched; }, kTimeout));
    QTest::mouseMove(&display(), at(2.0));
    ASSERT_FALSE(hovers.isEmpty());
    const auto info = hovers.last().at(0).value<HoverInfo>();
    EXPECT_EQ(info.noteName, QStringLiteral("A4"));
    EXPECT_NEAR(info.cents, 0.0, 5.0);
    EXPECT_GT(info.goodness, 0.0);
    EXPECT_TRUE(info.text.contains(QStringLiteral("A4")));
    EXPECT_TRUE(info.text.startsWith(QStringLiteral("0:02.0")));
}

TEST_F(Mouse, hoverFollowsTheMouseThroughDragsScrollsAndZooms)
{
    QSignalSpy hovers(area.pointer, &TracePointer::hovered);
    auto lastHoverTime = [&hovers] {
        return hovers.isEmpty() ? -1.0 : hovers.last().at(0).value<HoverInfo>().timeSeconds;
    };
    // The time under canvas x as the view now stands.
    auto timeUnder = [this](int x) {
        return hView().leftTime + x * hView().timeWidth / hView().canvasWidth;
    };

    // While a selection is dragged out.
    QTest::mousePress(&display(), Qt::LeftButton, {}, at(1.0));
    QTest::mouseMove(&display(), at(1.5));
    EXPECT_NEAR(lastHoverTime(), 1.5, 2.0 * hView().pixelWidth);
    QTest::mouseMove(&display(), at(2.5));
    EXPECT_NEAR(lastHoverTime(), 2.5, 2.0 * hView().pixelWidth);
    QTest::mouseRelease(&display(), Qt::LeftButton, {}, at(2.5));

    // A zoom (as the keys and buttons make it) and a wheel scroll move the sound under a still
    // mouse.
    const QPoint mouse = at(2.0);
    QTest::mouseMove(&display(), mouse);
    display().hZoom(4.0);
    EXPECT_NEAR(lastHoverTime(), timeUnder(mouse.x()), 1e-9);
    const double beforeWheel = hView().leftTime;
    QWheelEvent wheel(mouse, display().mapToGlobal(mouse), {}, QPoint(0, 120), Qt::NoButton, {},
                      Qt::NoScrollPhase, false);
    QApplication::sendEvent(&display(), &wheel);
    ASSERT_NE(hView().leftTime, beforeWheel);
    EXPECT_NEAR(lastHoverTime(), timeUnder(mouse.x()), 1e-9);

    // Once the mouse has left, a redraw tells nothing more.
    QEvent leave(QEvent::Leave);
    QApplication::sendEvent(&display(), &leave);
    const qsizetype told = hovers.count();
    display().hZoom(2.0);
    EXPECT_EQ(hovers.count(), told);
}

TEST_F(Mouse, viewMovedOnlyWhenTheViewMoves)
{
    QSignalSpy prepared(&display(), &DisplayView::prepared);
    // Settled: the columns of the view are shown and a preparation has followed them.
    ASSERT_TRUE(
        QTest::qWaitFor([this] { return area.pointer->hoverAt(at(2.0).x()).pitched; }, kTimeout));
    display().redrawAll();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !prepared.isEmpty(); }, kTimeout));

    // Redraws move nothing, once the analysis has stopped bringing new data (each round it
    // still does re-reads the hover).
    QSignalSpy moved(&display(), &DisplayView::viewMoved);
    const auto round = [&] {
        const qsizetype before = prepared.count();
        display().redrawAll();
        return QTest::qWaitFor([&] { return prepared.count() > before; }, kTimeout);
    };
    for (int k = 0; k < 100; ++k) {
        moved.clear();
        ASSERT_TRUE(round());
        if (moved.isEmpty())
            break;
    }
    for (int k = 0; k < 3; ++k)
        ASSERT_TRUE(round());
    EXPECT_EQ(moved.count(), 0);
    // New data shown under a still mouse (a redisplay marks it changed) is read again, once.
    DisplayView::requestRedraw();
    ASSERT_TRUE(QTest::qWaitFor([&] { return moved.count() > 0; }, kTimeout));
    ASSERT_TRUE(round());
    EXPECT_EQ(moved.count(), 1);
    moved.clear();

    // A zoom and a scroll in time and a zoom in height each move it, at once.
    const QPoint mouse = at(2.0);
    QWheelEvent wheel(mouse, display().mapToGlobal(mouse), {}, QPoint(0, 120), Qt::NoButton, {},
                      Qt::NoScrollPhase, false);
    display().hZoom(4.0);
    const qsizetype afterZoom = moved.count();
    EXPECT_GE(afterZoom, 1);
    const double beforeWheel = hView().leftTime;
    QApplication::sendEvent(&display(), &wheel);
    ASSERT_NE(hView().leftTime, beforeWheel);
    EXPECT_EQ(moved.count(), afterZoom + 1);
    display().vZoom(2.0);
    EXPECT_EQ(moved.count(), afterZoom + 2);
}

TEST_F(Mouse, zoomShowsTheScrollerWhosePagesAndTheRulerScrollInTime)
{
    QSignalSpy scrollOut(&display(), &DisplayView::scrollOutChanged);
    EXPECT_FALSE(display().canHScrollOut());
    display().hZoom(4.0);
    ASSERT_TRUE(QTest::qWaitFor([this] { return area.hScroller->isVisible(); }, kTimeout));
    EXPECT_TRUE(display().canHScrollOut());
    ASSERT_FALSE(scrollOut.isEmpty());
    EXPECT_TRUE(scrollOut.last().at(0).toBool());
    const double width = hView().timeWidth;
    ASSERT_TRUE(QTest::qWaitFor([&] { return hView().pixelWidth * 600.0 == width; }, kTimeout));

    // Zoomed in about the middle, the view is held at the end of the sound; a press in the
    // track left of the knob pages half a view back.
    const double before = hView().leftTime;
    MyScroller &scroller = *area.hScroller;
    QTest::mouseClick(&scroller, Qt::LeftButton, {}, QPoint(30, scroller.height() / 2));
    EXPECT_NEAR(hView().leftTime, before - 0.5 * width, 1e-9);

    // Dragging the ruler right moves the content with the mouse, back in time.
    const double beforeDrag = hView().leftTime;
    ColumnHeaderView &ruler = *area.columnHeaderView;
    QTest::mousePress(&ruler, Qt::LeftButton, {}, QPoint(240, 10));
    QTest::mouseMove(&ruler, QPoint(270, 10));
    QTest::mouseRelease(&ruler, Qt::LeftButton, {}, QPoint(270, 10));
    EXPECT_NEAR(hView().leftTime, beforeDrag - 30.0 * hView().pixelWidth, 1e-9);

    // Back to the whole: the scroller goes and the window hears of it.
    display().hToggle();
    ASSERT_TRUE(QTest::qWaitFor([this] { return !area.hScroller->isVisible(); }, kTimeout));
    EXPECT_FALSE(scrollOut.last().at(0).toBool());
}

TEST_F(Mouse, keyboardDragScrollsTheNotesWithTheMouse)
{
    DataView &notes = *shown.music().compositeView;
    display().vZoom(2.0);
    ASSERT_TRUE(QTest::qWaitFor([&] { return display().canVScrollOut(); }, kTimeout));
    EXPECT_TRUE(area.vScroller->isVisible());
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return notes.pixelHeight * notes.canvasHeight == notes.topY - notes.bottomY; },
        kTimeout));
    const double bottom = notes.bottomY;
    RowHeaderView &keyboard = *area.rowHeaderView;
    EXPECT_EQ(keyboard.cursor().shape(), Qt::SizeVerCursor);
    EXPECT_EQ(area.columnHeaderView->cursor().shape(), Qt::SizeHorCursor);
    QTest::mousePress(&keyboard, Qt::LeftButton, {}, QPoint(20, 100));
    QTest::mouseMove(&keyboard, QPoint(20, 130));
    QTest::mouseRelease(&keyboard, Qt::LeftButton, {}, QPoint(20, 130));
    // Dragging down brings higher notes down into view.
    EXPECT_NEAR(notes.bottomY, bottom + 30.0 * notes.pixelHeight, 1e-9);
    // However far, the band stays within the note range.
    QTest::mousePress(&keyboard, Qt::LeftButton, {}, QPoint(20, 10));
    QTest::mouseMove(&keyboard, QPoint(20, 400));
    QTest::mouseRelease(&keyboard, Qt::LeftButton, {}, QPoint(20, 400));
    EXPECT_EQ(notes.topY, notes.maxY);
}

} // namespace
} // namespace quorval
