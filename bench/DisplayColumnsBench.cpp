// Filling the display columns of a 1600-pixel-wide, 10-second visible range of an analysed
// sound: a fill from scratch (every column re-aimed, measured, looked up and coloured), a fill
// with nothing changed (a plain redraw), a fill after scrolling by 16 columns, and a recolour
// followed by the fill that draws it.

#include "bench/BenchMain.h"
#include "options/OptionStore.h"
#include "streams/DisplayColumnStream.h"
#include "streams/MusicStream.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

namespace {

using namespace quorval;

constexpr double kRate = 44100.0;
constexpr double kSeconds = 12.0;
constexpr std::int64_t kColumns = 1600;
constexpr double kVisibleSeconds = 10.0;
constexpr std::int64_t kFirstColumn = 160; // the window starts 1 s in

// Half-second notes of a bright harmonic tone wandering up and down a scale, a little out of
// tune, with a short rest between them, so that columns have pitches, colours and silences.
std::vector<std::int16_t> melody()
{
    const int notes[] = {57, 59, 61, 62, 64, 66, 68, 69, 68, 66, 64, 62, 61, 59, 57, 64};
    std::vector<std::int16_t> samples(static_cast<std::size_t>(kSeconds * kRate));
    const auto noteFrames = static_cast<std::size_t>(0.5 * kRate);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const std::size_t n = i / noteFrames;
        const std::size_t inNote = i % noteFrames;
        if (inNote > noteFrames * 9 / 10)
            continue;
        const double note = notes[n % std::size(notes)] + 0.15 * std::sin(static_cast<double>(n));
        const double freqHz = 440.0 * std::exp2((note - 69.0) / 12.0);
        const double t = static_cast<double>(i) / kRate;
        double value = 0.0;
        for (int k = 1; k <= 8; ++k)
            value += std::sin(2.0 * M_PI * freqHz * k * t) / k;
        samples[i] = static_cast<std::int16_t>(std::lround(6000.0 * value));
    }
    return samples;
}

struct Analysed
{
    std::shared_ptr<MusicStream> music;
    std::shared_ptr<DisplayColumnStream> columns;
};

Analysed &analysed()
{
    static Analysed sound = [] {
        Analysed made;
        const std::vector<std::int16_t> pcm = melody();
        auto wav = WavStream::createForRecording(1, 2, kRate);
        Quorval::dataQueue().sync(
            [&] { (void)wav->appendSamples_D(pcm.data(), static_cast<std::int64_t>(pcm.size())); });
        wav->modified = false;
        made.music = MusicStream::create(wav);
        if (!made.music->waitUntilCalculated(std::chrono::minutes(5)))
            std::fprintf(stderr, "the analysis did not finish\n");
        ColumnSettings settings;
        settings.goodnessThreshold = 100.0;
        made.columns = DisplayColumnStream::create(made.music, kColumns, kVisibleSeconds, settings);
        const double reference = made.columns->fill(kFirstColumn).referenceVolume;
        std::fprintf(stderr, "%s; reference volume %.1f\n", made.columns->description().c_str(),
                     reference);
        return made;
    }();
    return sound;
}

void fillFromScratch(benchmark::State &state)
{
    DisplayColumnStream &columns = *analysed().columns;
    for (auto _ : state) {
        benchmark::DoNotOptimize(Quorval::dataQueue().sync([&] {
            columns.invalidateAll_D();
            return columns.fill_D(kFirstColumn);
        }));
    }
}
BENCHMARK(fillFromScratch)->Unit(benchmark::kMillisecond)->UseRealTime();

void fillUnchanged(benchmark::State &state)
{
    DisplayColumnStream &columns = *analysed().columns;
    Quorval::dataQueue().sync([&] { (void)columns.fill_D(kFirstColumn); });
    for (auto _ : state)
        benchmark::DoNotOptimize(
            Quorval::dataQueue().sync([&] { return columns.fill_D(kFirstColumn); }));
}
BENCHMARK(fillUnchanged)->Unit(benchmark::kMillisecond)->UseRealTime();

void fillAfterScrolling(benchmark::State &state)
{
    DisplayColumnStream &columns = *analysed().columns;
    std::int64_t first = kFirstColumn;
    Quorval::dataQueue().sync([&] { (void)columns.fill_D(first); });
    for (auto _ : state) {
        // Back and forth over the sound, 1 % of the width at a time.
        first = first + 16 > 320 ? 0 : first + 16;
        benchmark::DoNotOptimize(Quorval::dataQueue().sync([&] { return columns.fill_D(first); }));
    }
}
BENCHMARK(fillAfterScrolling)->Unit(benchmark::kMillisecond)->UseRealTime();

void recolorAndFill(benchmark::State &state)
{
    DisplayColumnStream &columns = *analysed().columns;
    ColumnSettings settings;
    settings.goodnessThreshold = 100.0;
    Quorval::dataQueue().sync([&] { (void)columns.fill_D(kFirstColumn); });
    for (auto _ : state) {
        settings.tuning = !settings.tuning;
        benchmark::DoNotOptimize(Quorval::dataQueue().sync([&] {
            columns.recolor_D(settings);
            return columns.fill_D(kFirstColumn);
        }));
    }
}
BENCHMARK(recolorAndFill)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

// The options store lives in a temporary directory, so a benchmark run never touches the
// user's own.
int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName("Quorval");
    QCoreApplication::setApplicationName("Quorval");
    return quorval::bench::runWithStreams(app, argc, argv, [] { analysed() = {}; });
}
