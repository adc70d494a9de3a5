// Recording and playback through the sound server (run beside scripts/sound-server.sh):
// the time from a tone's onset at the input to its first pitched segment, the time from the
// player's start to the first movement of the play mark, and the CPU used while recording and
// analysing live, as a share of one core.

#include "analysis/WavFileOC.h"
#include "audio/FilePlayer.h"
#include "audio/Player.h"
#include "audio/Recorder.h"
#include "bench/BenchMain.h"
#include "options/OptionStore.h"
#include "streams/MusicStream.h"
#include "streams/PitchStream.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"

#include <QCoreApplication>
#include <QMediaDevices>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <ctime>
#include <filesystem>
#include <memory>
#include <thread>

namespace {

using namespace quorval;
using Clock = std::chrono::steady_clock;

constexpr double kNote = 69.0;
constexpr double kLeadSeconds = 0.3; // silence before the tone

// A temporary mono 16-bit WAV file: leadSeconds of silence, then seconds of a bright tone at
// note whose pitch swings by vibratoCents five times a second. Removed with the object.
class ToneFile
{
public:
    ToneFile(double leadSeconds, double seconds, double vibratoCents)
    {
        const auto lead = static_cast<std::size_t>(leadSeconds * 44100);
        std::vector<std::int16_t> samples(lead + static_cast<std::size_t>(seconds * 44100));
        double phase = 0.0;
        for (std::size_t i = lead; i < samples.size(); ++i) {
            const double t = static_cast<double>(i) / 44100;
            const double cents = vibratoCents * std::sin(2.0 * M_PI * 5.0 * t);
            phase += 2.0 * M_PI * 440.0 * std::exp2((kNote - 69.0 + cents / 100.0) / 12.0) / 44100;
            double value = 0.0;
            for (int k = 1; k <= 6; ++k)
                value += std::sin(k * phase) / k;
            samples[i] = static_cast<std::int16_t>(6000.0 * value);
        }
        const int bytes = static_cast<int>(2 * samples.size());
        ok = file.setupWithSampleRate(44100, 1, 2, bytes) &&
             file.putSamples(samples.data(), static_cast<int>(samples.size()), 0) &&
             file.finalizeWithByteSize(bytes);
    }
    ~ToneFile() { std::filesystem::remove(file.getFilePath()); }
    [[nodiscard]] const std::string &path() const { return file.getFilePath(); }
    bool ok = false;

private:
    WavFileOC file;
};

bool haveServer(benchmark::State &state)
{
    if (!QMediaDevices::audioInputs().isEmpty() && !QMediaDevices::audioOutputs().isEmpty())
        return true;
    state.SkipWithError("no sound server");
    return false;
}

// Polls often enough to resolve a few milliseconds, without taking a core from the work timed.
void breathe()
{
    std::this_thread::sleep_for(std::chrono::microseconds(500));
}

// The first segment from `from` on whose pitch is within half a semitone of note; -1 while
// none is computed yet. Stops at the first segment still waiting for its pitch.
std::int64_t firstPitched(PitchStream &pitch, std::int64_t &from, double note)
{
    const std::int64_t end = pitch.maximumIndex();
    for (; from < end; ++from) {
        const double value = pitch.valueAt(from);
        if (value == 0.0)
            return -1;
        if (std::abs(value - note) < 0.5)
            return from;
    }
    return -1;
}

void recordingToPitch(benchmark::State &state)
{
    if (!haveServer(state))
        return;
    const ToneFile file(kLeadSeconds, 1.0, 0.0);
    Recorder recorder;
    for (auto _ : state) {
        auto wav = WavStream::createForRecording(1, 2, Recorder::sampleRate);
        auto music = MusicStream::create(wav);
        if (!recorder.start(wav)) {
            state.SkipWithError("recording did not start");
            return;
        }
        auto output = FilePlayer::open(file.path());
        output->play();
        while (output->currentTime() < kLeadSeconds)
            breathe();
        const Clock::time_point onset = Clock::now();
        std::int64_t cursor = 0;
        while (firstPitched(*music->pitchStream(), cursor, kNote) < 0 &&
               Clock::now() - onset < std::chrono::seconds(5))
            breathe();
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - onset).count());
        output->pause();
        recorder.stop();
        music->waitUntilCalculated(std::chrono::seconds(10));
        wav->modified = false;
    }
}
BENCHMARK(recordingToPitch)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);

void playerStart(benchmark::State &state)
{
    if (!haveServer(state))
        return;
    const ToneFile file(0.0, 1.0, 0.0);
    auto wav = WavStream::createFromFile(file.path());
    wav->waitForCopy();
    SharedPlayerView view;
    Player player(view);
    for (auto _ : state) {
        view.setPlayMark(0.0);
        const Clock::time_point asked = Clock::now();
        player.start(*wav, {});
        while (view.playMark() == 0.0 && Clock::now() - asked < std::chrono::seconds(5))
            breathe();
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - asked).count());
        player.stop();
    }
}
BENCHMARK(playerStart)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);

double processCpuSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Three seconds of a tone recorded and analysed as it arrives; the counter is the process's CPU
// time over the wall time, in per cent of one core.
void cpuWhileRecording(benchmark::State &state)
{
    if (!haveServer(state))
        return;
    const ToneFile file(0.0, 3.0, 20.0);
    Recorder recorder;
    double cpuShare = 0.0;
    for (auto _ : state) {
        auto wav = WavStream::createForRecording(1, 2, Recorder::sampleRate);
        auto music = MusicStream::create(wav);
        auto output = FilePlayer::open(file.path());
        const double cpuBefore = processCpuSeconds();
        const Clock::time_point wallBefore = Clock::now();
        recorder.start(wav);
        output->play();
        while (recorder.framesAppended() < 3 * 44100)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        recorder.stop();
        const double wall = std::chrono::duration<double>(Clock::now() - wallBefore).count();
        cpuShare = 100.0 * (processCpuSeconds() - cpuBefore) / wall;
        output->pause();
        music->waitUntilCalculated(std::chrono::seconds(10));
        wav->modified = false;
    }
    state.counters["cpu_percent_of_one_core"] = cpuShare;
}
BENCHMARK(cpuWhileRecording)->Unit(benchmark::kSecond)->Iterations(1);

} // namespace

// The options store lives in a temporary directory, so a benchmark run never touches the
// user's own.
int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    return quorval::bench::runWithStreams(app, argc, argv);
}
