#include "app/Transport.h"

#include "app/LevelMeter.h"
#include "app/ToneControl.h"
#include "app/TransportBar.h"
#include "app/tests/WindowTest.h"
#include "audio/tests/SoundServer.h"
#include "display/DisplayView.h"
#include "scale/Scale.h"
#include "streams/PitchStream.h"

#include <QAudioDevice>
#include <QComboBox>
#include <QLabel>
#include <QToolButton>

namespace quorval {
namespace {

// Plays and records through the sound server (scripts/sound-server.sh runs a private one).
class TransportTest : public WindowTest
{
protected:
    void SetUp() override
    {
        if (!test::soundServerPresent()) {
            if (test::soundServerRequired())
                FAIL() << "no sound server";
            GTEST_SKIP() << "no sound server";
        }
        WindowTest::SetUp();
    }

    // What the trace area is shown of the transport.
    [[nodiscard]] const PlaybackState &shown() const { return *controller->transport->playback(); }

    [[nodiscard]] std::int64_t frames() const
    {
        auto wav = controller->wavStream();
        return Quorval::dataQueue().sync([&wav] { return wav->maximumIndex_D(); });
    }
};

TEST_F(TransportTest, playPauseAndRecordFollowClicksAndKeys)
{
    // Without one touch a click on play starts at once.
    ASSERT_TRUE(Parameters::shared().oneTouchPlayRecord.setValue(false));
    controller->stopTransport();
    ASSERT_TRUE(controller->transportBar->playButton->isEnabled());
    const double start = shown().needleTime;
    QTest::mouseClick(controller->transportBar->playButton, Qt::LeftButton);
    WAIT_FOR(shown().playing, 5000);
    WAIT_FOR(shown().needleTime > start + 0.1, 5000);

    // Space pauses where it is and resumes from there.
    type(' ');
    EXPECT_FALSE(shown().playing);
    EXPECT_TRUE(controller->transportBar->playButton->isChecked());
    EXPECT_TRUE(controller->transportBar->pauseButton->isChecked());
    const double paused = shown().needleTime;
    type(' ');
    WAIT_FOR(shown().playing, 5000);
    WAIT_FOR(shown().needleTime > paused + 0.05, 5000);

    // Record turns play off and grows the sound; play is then locked out.
    const std::int64_t before = frames();
    type('r');
    EXPECT_FALSE(shown().playing);
    EXPECT_FALSE(controller->transportBar->playButton->isChecked());
    WAIT_FOR(shown().recording, 5000);
    WAIT_FOR(frames() > before + 4410, 5000);
    EXPECT_TRUE(controller->transportBar->levelMeter->isVisible());
    EXPECT_FALSE(controller->transportBar->playButton->isEnabled());
    EXPECT_TRUE(title().endsWith(QStringLiteral(" *")));
    type('p');
    EXPECT_TRUE(shown().recording);

    // Paused, a click on play takes over: it turns record off and plays once pause is off.
    type(' ');
    EXPECT_FALSE(shown().recording);
    EXPECT_FALSE(controller->transportBar->levelMeter->isVisible());
    const std::int64_t recorded = frames();
    QTest::mouseClick(controller->transportBar->playButton, Qt::LeftButton);
    EXPECT_FALSE(controller->transportBar->recordButton->isChecked());
    EXPECT_FALSE(shown().playing);
    type('b');
    type(' ');
    WAIT_FOR(shown().playing, 5000);
    EXPECT_EQ(frames(), recorded);
    type('p');
    EXPECT_FALSE(shown().playing);
}

TEST_F(TransportTest, oneTouchPreparesAndSpaceStartsAndStops)
{
    ASSERT_TRUE(Parameters::shared().oneTouchPlayRecord.setValue(true));
    document->newRecording();
    // A new recording comes prepared for record.
    EXPECT_TRUE(controller->transportBar->recordButton->isChecked());
    EXPECT_TRUE(controller->transportBar->pauseButton->isChecked());
    EXPECT_EQ(controller->transportBar->oneTouchLabel->text(),
              QStringLiteral("Touch space to record"));
    type(' ');
    WAIT_FOR(shown().recording, 5000);
    EXPECT_EQ(controller->transportBar->oneTouchLabel->text(),
              QStringLiteral("Touch space to pause"));
    WAIT_FOR(frames() > 4410, 5000);
    type(' ');
    EXPECT_FALSE(shown().recording);

    // A click on play prepares it instead of starting.
    QTest::mouseClick(controller->transportBar->playButton, Qt::LeftButton);
    EXPECT_FALSE(shown().playing);
    EXPECT_FALSE(controller->transportBar->recordButton->isChecked());
    EXPECT_EQ(controller->transportBar->oneTouchLabel->text(),
              QStringLiteral("Touch space to play"));
    type('b');
    type(' ');
    WAIT_FOR(shown().playing, 5000);
    // Played to its end, it comes back prepared.
    WAIT_FOR(!shown().playing, 10000);
    WAIT_FOR(controller->transportBar->oneTouchLabel->text() ==
                 QStringLiteral("Touch space to play"),
             5000);

    // The keys name what they do: p plays at once, one touch or not, prepared as it is.
    type('p');
    WAIT_FOR(shown().playing, 5000);
    EXPECT_TRUE(controller->transportBar->playButton->isChecked());
    EXPECT_EQ(controller->transportBar->oneTouchLabel->text(),
              QStringLiteral("Touch space to pause"));
}

// Held "t" sounds the grid note nearest the pitch at the needle; the button keeps it on.
TEST_F(WindowTest, referenceToneFollowsTheKeyAndTheButton)
{
    QUORVAL_NEED_SOUND_SERVER();
    // The demo's first note, a little into it.
    controller->transport->playhead().moveNeedle(0.5);
    const double frequency = controller->tone->frequency();
    const Scale scale = Scale::current();
    const double note = scale.noteNumber(frequency);
    EXPECT_NEAR(scale.deviation(note), 0.0, 1e-9);
    const double heard = controller->musicStream()->pitchAt(
        static_cast<std::int64_t>(0.5 / controller->musicStream()->pitchStream()->xScale));
    ASSERT_GT(heard, 0.0);
    EXPECT_LE(std::abs(note - heard), 0.5 + 1e-9);

    QTest::sendKeyEvent(QTest::Press, delegate->mainView, Qt::Key_T, QStringLiteral("t"),
                        Qt::NoModifier);
    EXPECT_TRUE(controller->tone->sounding());
    QTest::sendKeyEvent(QTest::Release, delegate->mainView, Qt::Key_T, QStringLiteral("t"),
                        Qt::NoModifier);
    EXPECT_FALSE(controller->tone->sounding());
    controller->transportBar->toneButton->click();
    EXPECT_TRUE(controller->tone->sounding());
    QTest::sendKeyEvent(QTest::Release, delegate->mainView, Qt::Key_T, QStringLiteral("t"),
                        Qt::NoModifier);
    EXPECT_TRUE(controller->tone->sounding());
    controller->transportBar->toneButton->click();
    EXPECT_FALSE(controller->tone->sounding());
}

// "[" and "]" step through the practice speeds shown beside the transport; the player takes
// each up.
TEST_F(WindowTest, bracketKeysStepThePlayingSpeed)
{
    EXPECT_EQ(controller->transport->playhead().speed(), 1.0);
    std::vector<double> speeds;
    for (char c : {'[', '[', '[', ']', ']', ']'}) {
        type(c);
        speeds.push_back(controller->transport->playhead().speed());
    }
    EXPECT_EQ(speeds, (std::vector<double>{0.75, 0.5, 0.5, 0.75, 1.0, 1.0}));
    EXPECT_EQ(controller->transportBar->speedBox->currentText(), QStringLiteral("1\u00D7"));
    EXPECT_TRUE(controller->transportBar->speedBox->toolTip().contains(QLatin1Char('[')));
}

} // namespace
} // namespace quorval
