#include "streams/ParallelAnalysis.h"

#include "analysis/tests/support/TestSignals.h"
#include "streams/MusicStream.h"
#include "streams/WavStream.h"
#include "streams/tests/Tones.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

namespace quorval {
namespace {

using namespace std::chrono_literals;

std::shared_ptr<MusicStream> opened(const testsignals::TempWav &file)
{
    auto wav = WavStream::createFromFile(file.path());
    EXPECT_NE(wav, nullptr);
    return MusicStream::create(wav);
}

void expectSameResults(MusicStream &a, MusicStream &b)
{
    const std::vector<MusicStream::SegmentValue> first = a.segmentValues();
    const std::vector<MusicStream::SegmentValue> second = b.segmentValues();
    ASSERT_EQ(first.size(), second.size());
    for (std::size_t i = 0; i < first.size(); ++i) {
        ASSERT_NE(first[i].pitch, 0.0) << i;
        ASSERT_EQ(first[i].pitch, second[i].pitch) << i;
        ASSERT_EQ(first[i].goodness, second[i].goodness) << i;
    }
}

// Holds the music stream's calculation loop after each unit until the helpers have computed
// more than `beyond` segments, or the round's minute is up, so that they take part however the
// threads are scheduled.
struct HelperGate
{
    std::atomic<ParallelAnalysis *> helpers{nullptr};
    std::atomic<long long> beyond{0};
    std::atomic<std::chrono::steady_clock::time_point> giveUpAt{std::chrono::steady_clock::now() +
                                                                60s};

    void nextRound(long long helpedSoFar)
    {
        giveUpAt = std::chrono::steady_clock::now() + 60s;
        beyond = helpedSoFar;
    }

    void hold() const
    {
        for (;;) {
            const ParallelAnalysis *seen = helpers.load();
            if ((seen != nullptr && seen->helped() > beyond) ||
                std::chrono::steady_clock::now() >= giveUpAt.load())
                return;
            std::this_thread::sleep_for(1ms);
        }
    }
};

// The window's helpers start while the sound is still being copied, share the work with the
// loop and, after a recomputation, help again; the results are the loop's own to the last bit.
TEST(ParallelAnalysis, helpersServeAWindowsSoundWithTheLoopsOwnResults)
{
    std::vector<double> samples;
    for (double note : {48.0, 55.3, 62.0, 69.7, 76.0, 59.5})
        samples = test::joined(samples, test::toneAt(note, 4.0));
    const testsignals::TempWav file(samples, {}, 2);
    ASSERT_TRUE(file.ok());

    const std::shared_ptr<MusicStream> alone = opened(file);
    ASSERT_TRUE(alone->waitUntilCalculated(120s));

    HelperGate gate;
    const std::shared_ptr<MusicStream> helped = opened(file);
    helped->setUnitObserver([&gate](std::int64_t) { gate.hold(); });
    ParallelAnalysis helpers(helped, 3);
    gate.helpers = &helpers;
    ASSERT_TRUE(helped->waitUntilCalculated(120s));
    expectSameResults(*alone, *helped);
    const long long firstRound = helpers.helped();
    EXPECT_GT(firstRound, 0);

    gate.nextRound(firstRound);
    helped->recompute();
    ASSERT_TRUE(helped->waitUntilCalculated(120s));
    expectSameResults(*alone, *helped);
    EXPECT_GT(helpers.helped(), firstRound);
    helped->setUnitObserver(nullptr);
}

// Helpers of a sound that has gone end by themselves; stopped ones leave the loop to finish.
TEST(ParallelAnalysis, helpersEndWithTheirSoundOrWhenStopped)
{
    const testsignals::TempWav file(test::toneAt(60.0, 20.0), {}, 2);
    ASSERT_TRUE(file.ok());
    std::shared_ptr<MusicStream> music = opened(file);
    auto helpers = std::make_unique<ParallelAnalysis>(music, 2);
    music.reset();
    // Joins: a helper holding no sound any more must have returned.
    helpers.reset();

    music = opened(file);
    helpers = std::make_unique<ParallelAnalysis>(music, 2);
    helpers.reset();
    EXPECT_TRUE(music->waitUntilCalculated(120s));
}

} // namespace
} // namespace quorval
