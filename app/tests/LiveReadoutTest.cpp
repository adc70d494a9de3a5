#include "app/LiveReadout.h"

#include "analysis/tests/support/TestSignals.h"
#include "options/Parameters.h"
#include "options/tests/support/OptionsTestStore.h"
#include "streams/MusicStream.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"
#include "streams/tests/RecordedSound.h"
#include "streams/tests/Tones.h"

#include <QImage>

#include <gtest/gtest.h>

#include <optional>
#include <span>

namespace quorval {
namespace {

constexpr double kRate = 44100.0;

bool near(const QColor &a, const QColor &b)
{
    return std::abs(a.red() - b.red()) + std::abs(a.green() - b.green()) +
               std::abs(a.blue() - b.blue()) <
           30;
}

// The rows of image (in its top half) holding a pixel of roughly colour: the read-out's name.
int textHeight(const QImage &image, const QColor &colour)
{
    int top = -1;
    int bottom = -1;
    for (int y = 0; y < image.height() / 2; ++y)
        for (int x = 0; x < image.width(); ++x) {
            if (near(image.pixelColor(x, y), colour)) {
                top = top < 0 ? y : top;
                bottom = y;
                break;
            }
        }
    return top < 0 ? 0 : bottom - top + 1;
}

class LiveReadoutTest : public StoreTest
{
protected:
    void TearDown() override { Quorval::recording = false; }
};

// A recording fed in 10 ms pieces, as the recorder hands them over: silence, then A4 12 cents
// sharp, then E5 20 cents flat. After each piece the feed takes one reading, so what it shows
// is measured against the sound's own time.
TEST_F(LiveReadoutTest, followsARecordedToneWithinATenthOfASecond)
{
    const double toneStart = 0.4;
    const double change = 1.0;
    const std::vector<std::int16_t> pcm = test::toPCM(
        test::joined(test::joined(testsignals::silence(static_cast<int>(toneStart * kRate)),
                                  test::toneAt(69.12, change - toneStart)),
                     test::toneAt(75.8, 0.6)));
    auto wav = WavStream::createForRecording(1, 2, kRate);
    ASSERT_NE(wav, nullptr);
    auto music = MusicStream::create(wav);
    LiveReadout readout;
    auto playback = std::make_shared<PlaybackState>();
    LiveReadoutFeed feed(readout, playback);
    // The analysis hears of a recording from the recorder, the read-out from the transport.
    Quorval::recording = true;
    playback->recording = true;
    feed.follow(music);
    EXPECT_TRUE(readout.isBlank());

    std::optional<double> firstA;
    std::optional<double> firstE;
    std::size_t wrongAfterSettling = 0;
    const std::size_t piece = static_cast<std::size_t>(kRate / 100.0);
    for (std::size_t start = 0; start < pcm.size(); start += piece) {
        const std::size_t end = std::min(pcm.size(), start + piece);
        Quorval::realtimeQueue().sync(
            [&] { EXPECT_TRUE(wav->appendSamples(std::span(pcm).subspan(start, end - start))); });
        feed.update();
        const double now = static_cast<double>(end) / kRate;
        if (now < toneStart) {
            EXPECT_TRUE(readout.isBlank())
                << "at " << now << " s: " << readout.noteText().toStdString();
            continue;
        }
        const bool onA = readout.noteText() == QStringLiteral("A4");
        const bool onE = readout.noteText() == QStringLiteral("E5");
        if (onA && !firstA)
            firstA = now;
        if (onE && !firstE)
            firstE = now;
        if ((now > toneStart + 0.1 && now <= change && !onA) || (now > change + 0.1 && !onE))
            ++wrongAfterSettling;
        if (now > change - 0.02 && now <= change) {
            EXPECT_EQ(readout.centsText(), QStringLiteral("+12"));
            EXPECT_NEAR(readout.cents(), 12.0, 1.0);
            EXPECT_EQ(readout.color().red(), 255);
            EXPECT_LT(readout.color().blue(), 220);
            EXPECT_EQ(readout.color().green(), readout.color().blue());
        }
    }
    Quorval::recording = false;
    playback->recording = false;
    ASSERT_TRUE(firstA.has_value());
    ASSERT_TRUE(firstE.has_value());
    EXPECT_LE(*firstA - toneStart, 0.1);
    EXPECT_LE(*firstE - change, 0.1);
    EXPECT_EQ(wrongAfterSettling, 0u);
    EXPECT_EQ(readout.centsText(), QStringLiteral("-20"));
    EXPECT_EQ(readout.color().blue(), 255);
    EXPECT_LT(readout.color().red(), 220);

    // Not recording: the segment under the play needle.
    playback->needleTime = 0.7;
    feed.update();
    EXPECT_EQ(readout.noteText(), QStringLiteral("A4"));
    playback->needleTime = 0.2;
    feed.update();
    EXPECT_TRUE(readout.isBlank());
    feed.follow(nullptr);
    EXPECT_TRUE(readout.isBlank());
    wav->modified = false;
}

// The colours are the trace's, "Tuning" five times as sensitive; a pitch below "Quality
// threshold" shows nothing; the type grows with the pane.
TEST_F(LiveReadoutTest, colorsAsTheTraceAndGrowsWithThePane)
{
    ColumnSettings settings;
    settings.goodnessThreshold = 100.0;
    LiveReadout readout;
    readout.showPitch(69.12, 1000.0, settings);
    const QColor plain = readout.color();
    settings.tuning = true;
    readout.showPitch(69.12, 1000.0, settings);
    EXPECT_EQ(readout.noteText(), QStringLiteral("A4"));
    EXPECT_LT(readout.color().green(), plain.green() - 100);
    readout.showPitch(69.0, 99.0, settings);
    EXPECT_TRUE(readout.isBlank());
    readout.showPitch(-1.0, 1000.0, settings);
    EXPECT_TRUE(readout.isBlank());

    settings.tuning = false;
    readout.showPitch(61.95, 1000.0, settings); // D4 5 cents flat: almost white
    EXPECT_EQ(readout.centsText(), QStringLiteral("-5"));
    readout.resize(320, 240);
    const QImage small = readout.grab().toImage();
    readout.resize(960, 720);
    const QImage large = readout.grab().toImage();
    if (qEnvironmentVariableIsSet("QUORVAL_TEST_PICTURES"))
        large.save(qEnvironmentVariable("QUORVAL_TEST_PICTURES") + "/live-readout.png");
    const int smallHeight = textHeight(small, readout.color());
    EXPECT_GT(smallHeight, 240 / 6);
    EXPECT_GT(textHeight(large, readout.color()), 2 * smallHeight);
    // The needle stands left of the scale's middle, in the note's colour.
    const int scaleY = static_cast<int>(720 * 0.86) - 20;
    const double middle = 960 / 2.0;
    const double fiveCents = 960 * 0.84 * 5.0 / 100.0;
    EXPECT_TRUE(
        near(large.pixelColor(static_cast<int>(middle - fiveCents), scaleY), readout.color()));
    EXPECT_FALSE(
        near(large.pixelColor(static_cast<int>(middle + fiveCents), scaleY), readout.color()));
}

} // namespace
} // namespace quorval
