#pragma once

#include "audio/AudioPlayer.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace quorval::test {

// What a fake audio player was told; its clock is set by the test.
struct FakeAudioState
{
    std::atomic<double> now{0.0};
    std::mutex mutex;
    std::vector<double> timesSet; // guarded by mutex
    std::vector<int> loopsSet;    // guarded by mutex
    std::atomic<int> pauses{0};
    std::function<void()> finish;
};

// An audio player that only notes what it is told.
class FakeAudioPlayer : public AudioPlayer
{
public:
    explicit FakeAudioPlayer(std::shared_ptr<FakeAudioState> state) : state(std::move(state)) {}
    double currentTime() override { return state->now; }
    void setCurrentTime(double seconds) override
    {
        std::lock_guard lock(state->mutex);
        state->timesSet.push_back(seconds);
        state->now = seconds;
    }
    void setNumberOfLoops(int loops) override
    {
        std::lock_guard lock(state->mutex);
        state->loopsSet.push_back(loops);
    }
    void play() override {}
    void pause() override { ++state->pauses; }
    void setFinishCallback(std::function<void()> callback) override
    {
        state->finish = std::move(callback);
    }

private:
    std::shared_ptr<FakeAudioState> state;
};

} // namespace quorval::test
