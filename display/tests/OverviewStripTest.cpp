#include "display/OverviewStrip.h"

#include "display/TraceArea.h"
#include "display/tests/Sounds.h"
#include "streams/MusicStream.h"
#include "streams/tests/RecordedSound.h"
#include "streams/tests/Tones.h"

#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

#include <algorithm>

namespace quorval {
namespace {

using test::ShownSound;
using test::toneAt;

constexpr int kTimeout = 20000;

TEST(OverviewReducer, keepsEachColumnsBestPitchWithinTheSpan)
{
    OverviewReducer reducer(2.0, 10.0, 5, 0.01); // columns of 2 s from 2 s
    reducer.add(2.5, 60.0, 0.4);
    reducer.add(3.9, 62.0, 0.9);  // better, same column
    reducer.add(3.95, 61.0, 0.5); // worse
    reducer.add(4.0, -1.0, 5.0);  // no pitch: never shown however good
    reducer.add(11.99, 70.0, 0.1);
    reducer.add(1.99, 50.0, 1.0); // before the span
    reducer.add(12.0, 50.0, 1.0); // at its end
    const std::vector<OverviewReducer::Column> &c = reducer.columns();
    ASSERT_EQ(c.size(), 5u);
    EXPECT_EQ(c[0].pitch, 62.0);
    EXPECT_EQ(c[1].pitch, 0.0);
    EXPECT_EQ(c[4].pitch, 70.0);
    EXPECT_EQ(c[3].pitch, 0.0);

    // Columns finer than the segments: none is left empty, and a segment stays out of the
    // column that starts where it ends (the earlier segments are the better here).
    OverviewReducer fine(0.0, 1.0, 100, 0.025);
    for (int i = 0; i < 40; ++i)
        fine.add(0.025 * i, 60.0 + i, 40.0 - i);
    const std::vector<OverviewReducer::Column> &f = fine.columns();
    EXPECT_TRUE(std::all_of(f.begin(), f.end(), [](const auto &c) { return c.pitch > 0.0; }));
    EXPECT_EQ(f[2].pitch, 60.0);  // shared by the first two
    EXPECT_EQ(f[9].pitch, 63.0);  // the fourth ends at 0.1 s
    EXPECT_EQ(f[10].pitch, 64.0); // where the fifth starts
}

// A 6-second sound in a trace zoomed in to a few seconds: the strip shows, marks the view and
// centres it where it is clicked.
TEST(OverviewStrip, marksTheViewAndJumpsWhereClicked)
{
    ShownSound shown(test::joined(toneAt(57.0, 3.0), toneAt(69.0, 3.0)), ViewType::Composite);
    TraceArea area;
    shown.showIn(area);
    area.resize(700, 400);
    area.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&area));
    HView &h = *shown.music().timeView;
    ASSERT_TRUE(QTest::qWaitFor([&] { return h.pixelWidth > 0.0; }, kTimeout));
    OverviewStrip &strip = *area.overviewStrip;
    EXPECT_FALSE(strip.isVisible()); // the whole sound fits

    for (int i = 0; i < 3; ++i)
        area.displayView->hZoom(2.0);
    ASSERT_TRUE(QTest::qWaitFor([&] { return strip.isVisible(); }, kTimeout));
    strip.refreshNow();
    const HExtent e = area.displayView->extent();
    const double w = strip.width();
    ASSERT_GT(e.span(), 5.5);

    // The view's stretch in strip points, wherever it is scrolled to.
    h.setLeftTime(2.0, e, true);
    auto [left, right] = strip.markedStretch();
    EXPECT_NEAR(left, (2.0 - e.lowestX) / e.span() * w, 1.0);
    EXPECT_NEAR(right - left, h.timeWidth / e.span() * w, 1.0);

    // A click centres the view on the time under the mouse.
    const double perPoint = e.span() / w;
    QTest::mouseClick(&strip, Qt::LeftButton, {}, QPoint(static_cast<int>(0.75 * w), 10));
    EXPECT_NEAR(h.leftTime + 0.5 * h.timeWidth, e.lowestX + 0.75 * e.span(), perPoint);
    std::tie(left, right) = strip.markedStretch();
    EXPECT_NEAR(0.5 * (left + right), 0.75 * w, 1.5);
    // Near the end the view stops at the data, as the scroller does.
    QTest::mouseClick(&strip, Qt::LeftButton, {}, QPoint(static_cast<int>(w) - 1, 10));
    EXPECT_LE(h.leftTime + h.timeWidth * h.dataShare(e), e.highestX + 1e-9);
    EXPECT_GT(h.leftTime, 4.0);

    // The whole sound's pitches: the low tone in the first half, the high one in the second.
    const std::vector<OverviewReducer::Column> &c = strip.columns();
    ASSERT_EQ(c.size(), static_cast<std::size_t>(w));
    EXPECT_NEAR(c[static_cast<std::size_t>(0.25 * w)].pitch, 57.0, 0.1);
    EXPECT_NEAR(c[static_cast<std::size_t>(0.75 * w)].pitch, 69.0, 0.1);
}

// A recording that grows: the strip's columns follow it without being asked.
TEST(OverviewStrip, followsAGrowingRecording)
{
    auto wav = test::recordedSound(test::toPCM(toneAt(57.0, 3.0)));
    ASSERT_NE(wav, nullptr);
    auto music = MusicStream::create(wav);
    ASSERT_TRUE(music->waitUntilCalculated(std::chrono::seconds(60)));
    TraceArea area;
    area.displayView->setSound(music);
    area.resize(700, 400);
    area.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&area));
    HView &h = *music->timeView;
    ASSERT_TRUE(QTest::qWaitFor([&] { return h.pixelWidth > 0.0; }, kTimeout));
    area.displayView->hZoom(4.0);
    OverviewStrip &strip = *area.overviewStrip;
    ASSERT_TRUE(QTest::qWaitFor([&] { return strip.isVisible(); }, kTimeout));

    const std::vector<std::int16_t> more = test::toPCM(toneAt(69.0, 3.0));
    Quorval::dataQueue().sync([&] {
        ASSERT_TRUE(wav->appendSamples_D(more.data(), static_cast<std::int64_t>(more.size())));
    });
    music->soundGrew();
    // The newest stretch of the strip comes to hold the new tone.
    const auto newestPitch = [&strip] {
        const std::vector<OverviewReducer::Column> &c = strip.columns();
        return c.empty() ? 0.0 : c[c.size() * 9 / 10].pitch;
    };
    EXPECT_TRUE(QTest::qWaitFor([&] { return std::abs(newestPitch() - 69.0) < 0.1; }, kTimeout))
        << newestPitch();
    EXPECT_NEAR(strip.columns()[strip.columns().size() / 4].pitch, 57.0, 0.1);
    Quorval::setVisibleSegmentSource(nullptr);
    // The appended sound made the take unsaved again, and an unsaved take outlives its stream
    // for recovery: it would be offered at the developer's next start.
    wav->modified = false;
}

} // namespace
} // namespace quorval
