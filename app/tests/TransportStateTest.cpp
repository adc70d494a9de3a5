#include "app/Transport.h"
#include "audio/tests/FakeAudioPlayer.h"
#include "audio/tests/SoundServer.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"
#include "streams/tests/RecordedSound.h"

#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

namespace quorval {
namespace {

using State = Transport::State;

// A transport over a fake audio player: play ends when the test says the file ran out.
struct TransportStateTest : ::testing::Test
{
    std::shared_ptr<test::FakeAudioState> audio = std::make_shared<test::FakeAudioState>();
    bool oneTouch = false;
    bool playerOpens = true;
    // What the window hands its trace area.
    std::shared_ptr<PlaybackState> shown = std::make_shared<PlaybackState>();
    Transport transport{
        {.oneTouch = [this] { return oneTouch; },
         .redraw = {},
         .audioPlayer = [this](const std::string &) -> std::unique_ptr<AudioPlayer> {
             if (!playerOpens)
                 return nullptr;
             return std::make_unique<test::FakeAudioPlayer>(audio);
         },
         .playback = shown}};
    // Three seconds of silence at 1000 frames a second: playable, not recordable.
    std::shared_ptr<WavStream> sound = test::recordedSound(std::vector<std::int16_t>(3000), 1000.0);

    ~TransportStateTest() override { transport.stop(); }

    // The file runs out, as the audio player reports it.
    void runOut()
    {
        Quorval::displayQueue().sync([this] { audio->finish(); });
    }
};

TEST_F(TransportStateTest, clicksMoveBetweenTheStatesAndPlayEndsByItself)
{
    transport.setSound(sound);
    EXPECT_EQ(transport.state(), State::idle);
    EXPECT_FALSE(transport.canTogglePause());
    transport.togglePause();
    EXPECT_EQ(transport.state(), State::idle);
    EXPECT_FALSE(transport.canToggleRecord()); // not the recorder's format
    transport.toggleRecord();
    EXPECT_EQ(transport.state(), State::idle);

    transport.togglePlay();
    EXPECT_EQ(transport.state(), State::playing);
    EXPECT_TRUE(transport.isPlaying());
    transport.togglePause();
    EXPECT_EQ(transport.state(), State::playPaused);
    EXPECT_FALSE(transport.isPlaying());
    EXPECT_FALSE(transport.prepared());
    transport.togglePause();
    EXPECT_TRUE(transport.isPlaying());

    // Paused and turned off, play starts again at once: idle holds no pause.
    transport.togglePause();
    transport.togglePlay();
    EXPECT_EQ(transport.state(), State::idle);
    EXPECT_FALSE(transport.pauseOn());
    transport.togglePlay();
    EXPECT_EQ(transport.state(), State::playing);
    EXPECT_TRUE(transport.isPlaying());

    // The file runs out: back to idle, the needle at the end, the loop off.
    QSignalSpy changes(&transport, &Transport::stateChanged);
    runOut();
    ASSERT_TRUE(QTest::qWaitFor([&] { return transport.state() == State::idle; }, 5000));
    EXPECT_FALSE(transport.isPlaying());
    EXPECT_EQ(shown->needleTime, 3.0);
    EXPECT_GE(changes.count(), 1);

    // With the loop on the end begins another pass, and the state stays.
    transport.playhead().setLoop(true);
    transport.togglePlay();
    runOut();
    Quorval::displayQueue().sync([] {});
    QCoreApplication::processEvents();
    EXPECT_EQ(transport.state(), State::playing);
    EXPECT_TRUE(transport.isPlaying());

    // Rewind and fast forward put the needle at the sound's ends, not while nothing is there.
    transport.stop();
    EXPECT_EQ(transport.playhead().fastForward(), std::optional<double>(3.0));
    EXPECT_EQ(shown->needleTime, 3.0);
    EXPECT_EQ(transport.playhead().rewind(), std::optional<double>(0.0));
    transport.setSound(nullptr);
    EXPECT_FALSE(transport.canTogglePlay());
    EXPECT_EQ(transport.playhead().rewind(), std::nullopt);
    transport.togglePlay();
    EXPECT_EQ(transport.state(), State::idle);
}

TEST_F(TransportStateTest, theTraceAreasNeedleFollowsThePlayerAndRestsWhenStopped)
{
    transport.setSound(sound);
    EXPECT_EQ(shown->needleTime, 0.0);
    transport.togglePlay();
    EXPECT_TRUE(shown->playing);
    // The audio clock runs on: the player's ticks carry the needle with it.
    audio->now = 1.25;
    ASSERT_TRUE(QTest::qWaitFor([&] { return shown->needleTime == 1.25; }, 5000));
    transport.togglePause();
    EXPECT_FALSE(shown->running());
    audio->now = 2.5;
    Quorval::displayQueue().sync([] {});
    EXPECT_EQ(shown->needleTime, 1.25);
    transport.togglePause();
    EXPECT_TRUE(shown->playing);
    transport.stop();
    EXPECT_FALSE(shown->running());
    EXPECT_EQ(transport.playhead().rewind(), std::optional<double>(0.0));
    EXPECT_EQ(shown->needleTime, 0.0);
}

TEST_F(TransportStateTest, oneTouchClicksPrepareAndPauseStartsAndStops)
{
    oneTouch = true;
    // An opened sound comes prepared to play.
    transport.setSound(sound);
    EXPECT_EQ(transport.state(), State::playPaused);
    EXPECT_TRUE(transport.prepared());
    EXPECT_FALSE(transport.isPlaying());
    transport.togglePause();
    EXPECT_EQ(transport.state(), State::playing);
    EXPECT_TRUE(transport.isPlaying());
    EXPECT_FALSE(transport.prepared());

    // Played to its end it comes back prepared.
    runOut();
    ASSERT_TRUE(QTest::qWaitFor([&] { return transport.state() == State::playPaused; }, 5000));
    EXPECT_TRUE(transport.prepared());
    EXPECT_FALSE(transport.isPlaying());

    // A click on play turns it off; another only prepares it.
    transport.togglePlay();
    EXPECT_EQ(transport.state(), State::idle);
    transport.togglePlay();
    EXPECT_EQ(transport.state(), State::playPaused);
    EXPECT_TRUE(transport.prepared());
    EXPECT_FALSE(transport.isPlaying());

    // A command names what it does: play starts at once, one touch or not, from the prepared
    // state an opened sound comes in too.
    ASSERT_TRUE(transport.prepared());
    transport.togglePlay(Transport::Via::command);
    EXPECT_EQ(transport.state(), State::playing);
    EXPECT_TRUE(transport.isPlaying());
    transport.togglePause();
    EXPECT_EQ(transport.state(), State::playPaused);

    // A player that cannot open the file leaves the intent with nothing playing.
    playerOpens = false;
    transport.togglePause();
    EXPECT_EQ(transport.state(), State::playing);
    EXPECT_FALSE(transport.isPlaying());
}

// Recording through the sound server into a new, empty sound.
TEST_F(TransportStateTest, recordingFollowsTheSoundAndGivesWayToPlayOnlyWhenPaused)
{
    QUORVAL_NEED_SOUND_SERVER();
    oneTouch = true;
    std::shared_ptr<WavStream> take = WavStream::createForRecording(1, 2, 44100.0);
    ASSERT_NE(take, nullptr);
    transport.setSound(take);
    EXPECT_EQ(transport.state(), State::recordPaused);
    EXPECT_TRUE(transport.prepared());
    EXPECT_FALSE(transport.canTogglePlay()); // nothing to play yet

    QSignalSpy grew(&transport, &Transport::soundChanged);
    QSignalSpy stopped(&transport, &Transport::recordingStopped);
    transport.togglePause();
    EXPECT_EQ(transport.state(), State::recording);
    ASSERT_TRUE(transport.isRecording());
    EXPECT_TRUE(shown->recording);
    EXPECT_TRUE(take->modified);
    // The needle follows the end of what is recorded.
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return transport.playhead().extent().frames > 4410 && shown->needleTime > 0.1; },
        5000));
    EXPECT_LE(shown->needleTime, transport.playhead().extent().highest);
    EXPECT_GE(grew.count(), 2);
    // Play may not take over while recording.
    EXPECT_FALSE(transport.canTogglePlay());
    transport.togglePlay();
    EXPECT_EQ(transport.state(), State::recording);

    transport.togglePause();
    EXPECT_EQ(transport.state(), State::recordPaused);
    EXPECT_FALSE(transport.isRecording());
    EXPECT_FALSE(shown->running());
    EXPECT_EQ(stopped.count(), 1);
    EXPECT_EQ(shown->needleTime, transport.playhead().extent().highest);

    // Paused, play takes over and stays paused until the pause goes off.
    transport.togglePlay();
    EXPECT_EQ(transport.state(), State::playPaused);
    EXPECT_FALSE(transport.isRecording());
    transport.toggleRecord();
    EXPECT_EQ(transport.state(), State::recordPaused);
    transport.toggleRecord();
    EXPECT_EQ(transport.state(), State::idle);
    take->modified = false;

    // A new recording comes prepared; the record command starts it at once.
    const std::shared_ptr<WavStream> next = WavStream::createForRecording(1, 2, 44100.0);
    ASSERT_NE(next, nullptr);
    transport.setSound(next);
    ASSERT_TRUE(transport.prepared());
    transport.toggleRecord(Transport::Via::command);
    EXPECT_EQ(transport.state(), State::recording);
    EXPECT_TRUE(transport.isRecording());
    transport.stop();
    next->modified = false;
}

} // namespace
} // namespace quorval
