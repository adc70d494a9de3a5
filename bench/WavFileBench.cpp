// Reading 1024 frames of a WAV file as doubles (getSamples), mono and stereo 16-bit, inside the
// region and across the ring's end; and the volume of the same stretch.

#include "analysis/VolumeResultOC.h"
#include "analysis/WavFileOC.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <filesystem>
#include <random>
#include <vector>

namespace {

constexpr int kFrames = 1024;
constexpr int kRegionFrames = 44100;

// A temporary 16-bit file of one second of noise, removed when done.
class NoiseFile
{
public:
    explicit NoiseFile(int nChannels)
    {
        const int bytes = kRegionFrames * nChannels * 2;
        ok = wav.setupWithSampleRate(44100.0, nChannels, 2, bytes);
        std::vector<std::int16_t> samples(static_cast<std::size_t>(kRegionFrames * nChannels));
        std::mt19937 generator(2);
        std::uniform_int_distribution<int> noise(-20000, 20000);
        for (auto &sample : samples)
            sample = static_cast<std::int16_t>(noise(generator));
        ok = ok && wav.putSamples(samples.data(), static_cast<int>(samples.size()), 0) &&
             wav.finalizeWithByteSize(bytes);
    }
    NoiseFile(const NoiseFile &) = delete;
    NoiseFile &operator=(const NoiseFile &) = delete;
    ~NoiseFile()
    {
        std::error_code error;
        std::filesystem::remove(wav.getFilePath(), error);
    }

    quorval::WavFileOC wav;
    bool ok = false;
};

void getSamples(benchmark::State &state)
{
    const int nChannels = static_cast<int>(state.range(0));
    const bool acrossEnd = state.range(1) != 0;
    NoiseFile file(nChannels);
    if (!file.ok) {
        state.SkipWithError("cannot write the sound file");
        return;
    }
    const int frameBytes = nChannels * 2;
    // Across the end: half the frames at the end of the region, half at its start.
    const int byteLoc = acrossEnd ? (kRegionFrames - kFrames / 2) * frameBytes : 4096 * frameBytes;
    std::vector<double> out(kFrames);
    for (auto _ : state) {
        benchmark::DoNotOptimize(file.wav.getSamples(out.data(), byteLoc, kFrames));
        benchmark::ClobberMemory();
    }
}

void getVolume(benchmark::State &state)
{
    NoiseFile file(1);
    if (!file.ok) {
        state.SkipWithError("cannot write the sound file");
        return;
    }
    quorval::VolumeResultOC volume;
    for (auto _ : state) {
        file.wav.getVolume(8192, kFrames, volume);
        benchmark::DoNotOptimize(volume.getRMS());
    }
}

} // namespace

BENCHMARK(getSamples)->ArgNames({"channels", "acrossEnd"})->ArgsProduct({{1, 2}, {0, 1}});
BENCHMARK(getVolume);

BENCHMARK_MAIN();
