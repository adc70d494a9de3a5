// The pitch of one segment at the default segmentation: 1024 samples at 44.1 kHz, notes 55 to 91
// with 2 semitones of extension. Each iteration analyses the next of 64 segments (512 samples
// apart) of a sound, with the sample read from a WAV file or from memory; the "refined" runs add
// the octave check and refinement of "Refine pitch", and report their time over the search's
// alone as x_specified.
#include "analysis/FFTOC.h"
#include "analysis/PeakDataSetOC.h"
#include "analysis/PitchRefinerOC.h"
#include "analysis/PitchResultOC.h"
#include "analysis/WavFileOC.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <numbers>
#include <vector>

namespace quorval {
namespace {

constexpr double kSampleRate = 44100.0;
constexpr int kSegLength = 1024;
constexpr int kSegSpacing = 512;
constexpr int kSegments = 64;
constexpr int kSoundLength = kSegSpacing * (kSegments - 1) + kSegLength;
constexpr double kSemitone = 0.057762265046662105;

double noteHz(double note)
{
    return 440.0 * std::exp((note - 69.0) * kSemitone);
}

enum class Sound
{
    clean,  // sawtooth-like harmonic tone, a = 440 Hz
    bowed,  // a string-like tone at 196 Hz with 5.5 Hz vibrato of ±25 cents and bow noise
    noise,  // white noise
    silence // zeros
};

// Reproducible white noise in [-1, 1).
class Noise
{
public:
    double next()
    {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        return state / 2147483648.0 - 1.0;
    }

private:
    std::uint32_t state = 12345;
};

std::vector<double> makeSound(Sound sound)
{
    std::vector<double> out(kSoundLength, 0.0);
    Noise noise;
    const double twoPi = 2.0 * std::numbers::pi;
    if (sound == Sound::noise) {
        for (double &v : out)
            v = 8000.0 * noise.next();
        return out;
    }
    if (sound == Sound::silence)
        return out;
    const bool bowed = sound == Sound::bowed;
    const double f0 = bowed ? noteHz(55) : noteHz(69);
    double phase = 0.0;
    for (std::size_t i = 0; i < out.size(); i++) {
        const double t = static_cast<double>(i) / kSampleRate;
        double v = 0.0;
        for (int k = 1; k * f0 < 0.45 * kSampleRate; k++) {
            // A bowed string's bridge resonance lifts the partials around 2.5 kHz.
            const double lift =
                bowed ? 1.0 + 2.0 * std::exp(-std::pow(k * f0 / 2500.0 - 1.0, 2)) : 1.0;
            v += lift / k * std::sin(k * phase);
        }
        out[i] = 6000.0 * v + (bowed ? 150.0 * noise.next() : 0.0);
        const double cents = bowed ? 25.0 * std::sin(twoPi * 5.5 * t) : 0.0;
        phase += twoPi * f0 * std::exp2(cents / 1200.0) / kSampleRate;
    }
    return out;
}

// The analysis objects of one pitch stream and a 16-bit mono WAV file of the sound.
struct Setup
{
    explicit Setup(Sound sound) : samples(makeSound(sound))
    {
        fft.setupWithLogN(9);
        peaks.setupWithN(fft.getN() + 1, fft.getResult(), 0.5, kSampleRate / kSegLength,
                         440.0 * std::exp2((55.0 - 2.0 - 69.0) / 12.0), std::sqrt(2.0));
        std::vector<std::int16_t> pcm(samples.size());
        for (std::size_t i = 0; i < samples.size(); i++) {
            samples[i] = std::round(std::clamp(samples[i], -32768.0, 32767.0));
            pcm[i] = static_cast<std::int16_t>(samples[i]);
        }
        const int bytes = static_cast<int>(2 * pcm.size());
        wavOk = wav.setupWithSampleRate(kSampleRate, 1, 2, bytes) &&
                wav.putSamples(pcm.data(), static_cast<int>(pcm.size()), 0) &&
                wav.finalizeWithByteSize(bytes);
    }
    ~Setup() { std::remove(wav.getFilePath().c_str()); }
    Setup(const Setup &) = delete;
    Setup &operator=(const Setup &) = delete;

    std::vector<double> samples;
    FFTOC fft;
    PeakDataSetOC peaks;
    WavFileOC wav;
    bool wavOk = false;
    const double freqMin = noteHz(55.0 - 2.0);
    const double freqMax = noteHz(91.0 + 2.0);
};

void segmentPitch(benchmark::State &state, Sound sound, bool readFile, bool refine = false)
{
    Setup setup(sound);
    if (!setup.wavOk) {
        state.SkipWithError("cannot write the WAV file");
        return;
    }
    PitchResultOC pitch;
    // As the pitch stream sets it up: quick decibels where the refiner measures again.
    pitch.setQuickDecibels(refine);
    PitchRefinerOC refiner;
    if (!refiner.setupWithNFrames(kSegLength, kSampleRate / kSegLength)) {
        state.SkipWithError("cannot set up the refiner");
        return;
    }
    int segment = 0;
    std::int64_t evaluations = 0;
    std::int64_t pitched = 0;
    // The refined runs time the search and the refinement apart, so that their ratio comes from
    // the same segments at the same moment, whatever the machine is doing.
    std::chrono::steady_clock::duration searching{};
    std::chrono::steady_clock::duration refining{};
    for (auto _ : state) {
        // Read only where it is used: the plain runs time the search alone.
        const auto began =
            refine ? std::chrono::steady_clock::now() : std::chrono::steady_clock::time_point{};
        const int start = segment * kSegSpacing;
        if (readFile) {
            const bool read =
                pitch.setupFromWavFile(setup.wav, 2 * start, setup.fft, &setup.peaks, 2,
                                       setup.freqMin, setup.freqMax, 0.9, PeakDataSetOC::kDbLimit);
            benchmark::DoNotOptimize(read);
        } else {
            pitch.setupWithSamples(setup.samples.data() + start, setup.fft, &setup.peaks, 2,
                                   setup.freqMin, setup.freqMax, 0.9, PeakDataSetOC::kDbLimit);
        }
        pitch.compute();
        if (refine) {
            const auto searched = std::chrono::steady_clock::now();
            searching += searched - began;
            refiner.setSamples(setup.samples.data() + start);
            if (pitch.getFreq() > 0.0)
                benchmark::DoNotOptimize(
                    refiner.refine(pitch.getFreq(), setup.freqMin, setup.freqMax));
            refining += std::chrono::steady_clock::now() - searched;
        }
        benchmark::DoNotOptimize(pitch.getFreq());
        evaluations += setup.peaks.getGoodnessCount();
        pitched += pitch.getFreq() > 0.0 ? 1 : 0;
        segment = (segment + 1) % kSegments;
    }
    state.counters["goodness/seg"] =
        benchmark::Counter(static_cast<double>(evaluations), benchmark::Counter::kAvgIterations);
    state.counters["pitched"] =
        benchmark::Counter(static_cast<double>(pitched), benchmark::Counter::kAvgIterations);
    if (refine && searching.count() > 0)
        state.counters["x_specified"] = static_cast<double>((searching + refining).count()) /
                                        static_cast<double>(searching.count());
}

BENCHMARK_CAPTURE(segmentPitch, clean_memory, Sound::clean, false);
BENCHMARK_CAPTURE(segmentPitch, clean_file, Sound::clean, true);
BENCHMARK_CAPTURE(segmentPitch, bowed_memory, Sound::bowed, false);
BENCHMARK_CAPTURE(segmentPitch, bowed_file, Sound::bowed, true);
BENCHMARK_CAPTURE(segmentPitch, noise_memory, Sound::noise, false);
BENCHMARK_CAPTURE(segmentPitch, noise_file, Sound::noise, true);
BENCHMARK_CAPTURE(segmentPitch, silence_memory, Sound::silence, false);
BENCHMARK_CAPTURE(segmentPitch, clean_memory_refined, Sound::clean, false, true);
BENCHMARK_CAPTURE(segmentPitch, bowed_memory_refined, Sound::bowed, false, true);
BENCHMARK_CAPTURE(segmentPitch, noise_memory_refined, Sound::noise, false, true);
BENCHMARK_CAPTURE(segmentPitch, silence_memory_refined, Sound::silence, false, true);
BENCHMARK_CAPTURE(segmentPitch, silence_file, Sound::silence, true);

} // namespace
} // namespace quorval

BENCHMARK_MAIN();
