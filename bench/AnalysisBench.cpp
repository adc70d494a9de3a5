// Whole-file analysis of ten minutes of generated instrument-like tones on one and two threads
// (CPU and wall seconds, and how many times faster than real time), and the time from opening
// an hour-long file to having every segment of a 10-second visible stretch computed.
//
// `bench_AnalysisBench --make-sound MINUTES FILE` only writes such a file (for cli-bench.sh).

#include "bench/BenchMain.h"
#include "bench/GeneratedMusic.h"
#include "streams/ParallelAnalysis.h"
#include "options/OptionStore.h"
#include "streams/MusicStream.h"
#include "streams/PitchStream.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace quorval {
namespace {

using namespace std::chrono_literals;

QTemporaryDir &scratchFolder()
{
    static QTemporaryDir folder;
    return folder;
}

// A generated file of `minutes`, made once per run.
const std::string &musicFile(int minutes)
{
    static std::map<int, std::string> made;
    auto found = made.find(minutes);
    if (found == made.end()) {
        const std::string path =
            scratchFolder().filePath(QStringLiteral("music%1.wav").arg(minutes)).toStdString();
        if (!bench::writeGeneratedMusic(path, minutes * 60.0))
            std::abort();
        found = made.emplace(minutes, path).first;
    }
    return found->second;
}

double cpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](const timeval &t) {
        return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void BM_WholeFile(benchmark::State &state)
{
    constexpr int kMinutes = 10;
    const std::string &path = musicFile(kMinutes);
    const int jobs = static_cast<int>(state.range(0));
    double cpu = 0.0;
    double wall = 0.0;
    for (auto _ : state) {
        const double cpuStart = cpuSeconds();
        const auto wallStart = std::chrono::steady_clock::now();
        auto music = MusicStream::create(WavStream::createFromFile(path));
        ParallelAnalysis::analyse(music, jobs, nullptr);
        cpu += cpuSeconds() - cpuStart;
        wall += std::chrono::duration<double>(std::chrono::steady_clock::now() - wallStart).count();
        benchmark::DoNotOptimize(music->segmentValues().size());
    }
    const double runs = static_cast<double>(state.iterations());
    state.counters["cpu_s"] = cpu / runs;
    state.counters["wall_s"] = wall / runs;
    state.counters["realtime_x_cpu"] = kMinutes * 60.0 / (cpu / runs);
    state.counters["realtime_x_wall"] = kMinutes * 60.0 / (wall / runs);
}
BENCHMARK(BM_WholeFile)
    ->Arg(1)
    ->Arg(2)
    ->ArgName("jobs")
    ->Iterations(1)
    ->Unit(benchmark::kSecond)
    ->UseRealTime();

// The display's wish: every segment starting in [from, to) seconds, first.
class VisibleStretch : public VisibleSegmentSource
{
public:
    VisibleStretch(std::int64_t first, std::int64_t end) : first(first), end(end) {}

    std::int64_t nextVisibleSegment_D(const PitchStream &pitch) override
    {
        const std::int64_t last = std::min(end, pitch.maximumIndex_D());
        for (std::int64_t i = std::max(first, pitch.minimumIndex_D()); i < last; ++i)
            if (pitch.valueAt_D(i) == 0.0)
                return i;
        return -1;
    }

private:
    const std::int64_t first;
    const std::int64_t end;
};

void BM_OpenToVisibleComputed(benchmark::State &state)
{
    const std::string &path = musicFile(60);
    for (auto _ : state) {
        std::mutex mutex;
        std::condition_variable allDone;
        std::set<std::int64_t> computed;
        const auto start = std::chrono::steady_clock::now();
        std::shared_ptr<WavStream> wav = WavStream::createFromFile(path);
        // Segments of 512 frames: the first ten seconds.
        const std::int64_t visible = static_cast<std::int64_t>(10.0 * wav->sampleRate()) / 512;
        Quorval::setVisibleSegmentSource(std::make_shared<VisibleStretch>(0, visible));
        auto music = MusicStream::create(wav);
        const auto noteComputed = [&](std::int64_t code) {
            std::lock_guard lock(mutex);
            if (code >= 0 && code < visible && computed.insert(code).second &&
                static_cast<std::int64_t>(computed.size()) == visible)
                allDone.notify_all();
        };
        music->setUnitObserver(noteComputed);
        // The calculation starts with the stream: what it did before the observer was in place.
        const std::shared_ptr<PitchStream> pitch = music->pitchStream();
        const std::vector<std::int64_t> early = Quorval::dataQueue().sync([&] {
            std::vector<std::int64_t> done;
            for (std::int64_t i = 0; i < std::min(visible, pitch->maximumIndex_D()); ++i)
                if (pitch->valueAt_D(i) != 0.0)
                    done.push_back(i);
            return done;
        });
        for (const std::int64_t i : early)
            noteComputed(i);
        {
            std::unique_lock lock(mutex);
            if (!allDone.wait_for(lock, 60s, [&] {
                    return static_cast<std::int64_t>(computed.size()) == visible;
                }))
                state.SkipWithError("the visible segments were not computed");
        }
        state.SetIterationTime(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        music->setUnitObserver(nullptr);
        Quorval::setVisibleSegmentSource(nullptr);
        // Untimed: let the copy finish and the streams go, with the working file they remove
        // (the calculation may hold the last reference, and removing hundreds of megabytes
        // takes a while), and write out what is still to be written, so that none of it slows
        // the next round.
        wav->waitForCopy();
        music.reset();
        wav.reset();
        Quorval::calcQueue().sync([] {});
        ::sync();
    }
}
BENCHMARK(BM_OpenToVisibleComputed)->Iterations(3)->Unit(benchmark::kMillisecond)->UseManualTime();

} // namespace
} // namespace quorval

int main(int argc, char **argv)
{
    if (argc == 4 && std::string(argv[1]) == "--make-sound")
        return quorval::bench::writeGeneratedMusic(argv[3], std::atof(argv[2]) * 60.0) ? 0 : 1;

    QCoreApplication app(argc, argv);
    return quorval::bench::runWithStreams(app, argc, argv);
}
