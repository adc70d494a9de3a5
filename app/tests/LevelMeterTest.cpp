#include "app/LevelMeter.h"

#include <QImage>
#include <QTest>

#include <gtest/gtest.h>

namespace quorval {
namespace {

// The meter as drawn: the bar ends where the RMS sits on the -60..0 dBFS scale, and the clip
// mark is red for a second after a full-scale sample.
TEST(LevelMeter, drawsTheRmsBarAndHoldsTheClipMarkForASecond)
{
    Recorder::Levels given{0.5f, 0.1f, Recorder::nowMs()};
    LevelMeter meter([&given] { return given; });
    meter.resize(170, 20);
    EXPECT_FALSE(meter.isVisible());
    meter.setActive(true);
    EXPECT_TRUE(meter.isVisible());
    EXPECT_NEAR(LevelMeter::toDb(0.5f), -6.02, 0.01);
    EXPECT_EQ(LevelMeter::toDb(0.0f), LevelMeter::kFloorDb);
    EXPECT_EQ(LevelMeter::toDb(1e-9f), LevelMeter::kFloorDb);

    // Drawn once the meter has taken the source's figures on its frame timer.
    const auto picture = [&meter, &given] {
        EXPECT_TRUE(
            QTest::qWaitFor([&] { return meter.shown().clippedAtMs == given.clippedAtMs; }, 1000));
        return meter.grab().toImage();
    };
    QImage image = picture();
    if (qEnvironmentVariableIsSet("QUORVAL_TEST_PICTURES"))
        image.save(qEnvironmentVariable("QUORVAL_TEST_PICTURES") + "/level-meter.png");
    const int clipX = image.width() - 4;
    const int middle = image.height() / 2;
    EXPECT_EQ(QColor(image.pixel(clipX, middle)), QColor(255, 0, 0));
    // RMS -20 dBFS: the bar reaches two thirds of the scale and stops there.
    const double scale = image.width() - 12;
    const int barEnd = static_cast<int>(scale * 40.0 / 60.0);
    EXPECT_NE(QColor(image.pixel(barEnd - 6, middle)), QColor(Qt::black));
    EXPECT_EQ(QColor(image.pixel(barEnd + 6, 4)), QColor(Qt::black));

    given.clippedAtMs = Recorder::nowMs() - LevelMeter::kClipHoldMs - 1;
    image = picture();
    EXPECT_NE(QColor(image.pixel(clipX, middle)), QColor(255, 0, 0));

    // A peak near full scale: its tick stands alone, the figure is drawn clear of it.
    given = {0.9f, 0.01f, -1};
    image = picture();
    const int tickX = static_cast<int>(scale * (60.0 + LevelMeter::toDb(0.9f)) / 60.0);
    EXPECT_EQ(QColor(image.pixel(tickX, middle)), QColor(Qt::white));
    int lit = 0;
    for (int x = tickX - 30; x < tickX - 2; ++x)
        for (int y = 2; y < image.height() - 2; ++y)
            lit += QColor(image.pixel(x, y)) != QColor(Qt::black);
    EXPECT_EQ(lit, 0) << "the figure is drawn under the peak tick";
    meter.setActive(false);
    EXPECT_FALSE(meter.isVisible());
}

} // namespace
} // namespace quorval
