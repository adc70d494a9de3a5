#include "audio/Player.h"

#include "audio/tests/FakeAudioPlayer.h"
#include "streams/Quorval.h"
#include "streams/tests/RecordedSound.h"
#include "streams/tests/Wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <memory>
#include <mutex>
#include <vector>

namespace quorval {
namespace {

using test::FakeAudioPlayer;
using test::FakeAudioState;

struct PlayerFixture : ::testing::Test
{
    std::shared_ptr<FakeAudioState> audio = std::make_shared<FakeAudioState>();
    SharedPlayerView view;
    Player player{view, [this](const std::string &) -> std::unique_ptr<AudioPlayer> {
                      return std::make_unique<FakeAudioPlayer>(audio);
                  }};
    // Three seconds of silence at 1000 frames a second.
    std::shared_ptr<WavStream> wav = test::recordedSound(std::vector<std::int16_t>(3000), 1000.0);
    std::atomic<int> finishes{0};

    bool start()
    {
        return player.start(*wav, [this] { ++finishes; });
    }
    double lastTimeSet()
    {
        std::lock_guard lock(audio->mutex);
        return audio->timesSet.empty() ? -1.0 : audio->timesSet.back();
    }
    template <class F> auto onDisplay(F fn) { return Quorval::displayQueue().sync(fn); }
};

TEST_F(PlayerFixture, startsAtTheMarkInsideTheRangeElseAtItsStart)
{
    view.setSelection(1.0, 2.0);
    view.setPlayMark(1.5);
    ASSERT_TRUE(start());
    EXPECT_EQ(lastTimeSet(), 1.5);
    EXPECT_EQ(view.playMark(), 1.5);
    EXPECT_EQ(onDisplay([&] { return player.endTime; }), 2.0);
    player.stop();

    // At the selection's end the mark is outside it: it moves to the start first.
    view.setPlayMark(2.0);
    ASSERT_TRUE(start());
    EXPECT_EQ(lastTimeSet(), 1.0);
    EXPECT_EQ(view.playMark(), 1.0);
    player.stop();

    // Without a selection the range is the recording, and a mark past it goes to its start.
    view.setSelection(-1.0, -1.0);
    view.setPlayMark(3.0);
    ASSERT_TRUE(start());
    EXPECT_EQ(lastTimeSet(), 0.0);
    EXPECT_EQ(view.playMark(), 0.0);
    EXPECT_EQ(onDisplay([&] { return player.endTime; }), 3.0);
    player.stop();

    Player unplayable(view, [](const std::string &) { return nullptr; });
    EXPECT_FALSE(unplayable.start(*wav, {}));
}

TEST_F(PlayerFixture, loopsToTheSelectionStartAndEndsByHowPlayEnded)
{
    view.setSelection(1.0, 2.0);
    view.setPlayMark(1.5);
    view.setLoop(true);
    ASSERT_TRUE(start());
    audio->now = 1.8;
    ASSERT_TRUE(test::waitUntil([&] { return std::abs(view.playMark() - 1.8) < 1e-9; }));
    // Past the selection's end: back to its start, not to where play began.
    audio->now = 2.1;
    ASSERT_TRUE(test::waitUntil([&] { return view.playMark() == 1.0; }));
    EXPECT_EQ(lastTimeSet(), 1.0);
    EXPECT_GE(audio->pauses, 1);

    // The timer finds the end: the mark rests at the recording's end.
    view.setLoop(false);
    audio->now = 2.05;
    ASSERT_TRUE(test::waitUntil([&] { return finishes == 1; }));
    EXPECT_EQ(view.playMark(), 3.0);
    EXPECT_FALSE(onDisplay([&] { return player.playing; }));

    // The file runs out first: the mark rests at the range's end.
    view.setPlayMark(1.5);
    ASSERT_TRUE(start());
    onDisplay([&] { audio->finish(); });
    ASSERT_TRUE(test::waitUntil([&] { return finishes == 2; }));
    EXPECT_EQ(view.playMark(), 2.0);

    // With the loop on, the file's end begins another pass instead.
    view.setLoop(true);
    view.setPlayMark(1.5);
    ASSERT_TRUE(start());
    onDisplay([&] { audio->finish(); });
    onDisplay([] {});
    EXPECT_EQ(lastTimeSet(), 1.0);
    EXPECT_TRUE(onDisplay([&] { return player.playing; }));
    EXPECT_EQ(finishes, 2);
}

TEST_F(PlayerFixture, passesAndTicksGoRoundTheRing)
{
    // A 10 s ring; the timer stays off, so each tick below is the only one.
    onDisplay([&] {
        player.audioPlayer = std::make_unique<FakeAudioPlayer>(audio);
        player.playing = true;
        player.maxRange = 10.0;
        player.startTime = 12.0;
        player.maxX = 25.0;
        player.beginPass();
        EXPECT_EQ(player.startMark, 2.0);
        player.maxX = 19.0;
        player.beginPass();
    });
    EXPECT_EQ(lastTimeSet(), 2.0);
    {
        std::lock_guard lock(audio->mutex);
        EXPECT_EQ(audio->loopsSet, (std::vector<int>{1, 0}));
    }

    onDisplay([&] {
        player.endTime = 100.0;
        player.lastTime = 5.0;
        player.lastMark = 0.1;
        audio->now = 9.9; // backwards, or more than half the ring on: ignored
        player.tick();
        EXPECT_EQ(player.lastTime, 5.0);
        EXPECT_EQ(player.lastMark, 0.1);
        player.lastMark = 9.95;
        audio->now = 0.05; // forwards across the file's end
        player.tick();
        EXPECT_NEAR(player.lastTime, 5.1, 1e-9);
        EXPECT_EQ(player.lastMark, 0.05);
    });
    EXPECT_NEAR(view.playMark(), 5.1, 1e-9);
}

} // namespace
} // namespace quorval
