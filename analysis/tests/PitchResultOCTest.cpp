#include "analysis/PitchResultOC.h"

#include "analysis/FFTOC.h"
#include "analysis/PeakDataSetOC.h"
#include "analysis/WavFileOC.h"
#include "analysis/tests/support/TestSignals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <thread>

namespace quorval {
namespace {

using namespace testsignals;

constexpr int kSegLength = 1024;
constexpr double kLowestNote = 55.0;
constexpr double kHighestNote = 91.0;
constexpr double kExtension = 2.0;
constexpr double kSemitone = 0.057762265046662105;

// The analysis settings of the default segmentation: 1024 samples at 44.1 kHz, notes 55 to 91
// with 2 semitones of extension.
struct Settings
{
    double minThreshold = 0.5;
    double threshIncrement = 1.4142135623730951;
    int nHighest = 2;
    double freqMin = 440.0 * std::exp((kLowestNote - kExtension - 69.0) * kSemitone);
    double freqMax = 440.0 * std::exp((kHighestNote + kExtension - 69.0) * kSemitone);
    double lowFreq = 440.0 * std::exp2((kLowestNote - kExtension - 69.0) / 12.0);
    double goodnessThreshold = 0.9;
    double dbLimit = PeakDataSetOC::kDbLimit;
};

// One transform and one peak set, reused segment after segment as a pitch stream does.
class Analyser
{
public:
    explicit Analyser(const Settings &settings = Settings()) : settings(settings)
    {
        fft.setupWithLogN(9);
        peaks.setupWithN(fft.getN() + 1, fft.getResult(), settings.minThreshold,
                         kSampleRate / kSegLength, settings.lowFreq, settings.threshIncrement);
    }

    struct Result
    {
        double freq;
        double goodness;
    };

    Result analyse(const std::vector<double> &segment, bool withPeaks = true)
    {
        PitchResultOC pitch;
        pitch.setupWithSamples(segment.data(), fft, withPeaks ? &peaks : nullptr, settings.nHighest,
                               settings.freqMin, settings.freqMax, settings.goodnessThreshold,
                               settings.dbLimit);
        pitch.compute();
        return {pitch.getFreq(), pitch.getGoodness()};
    }

    Settings settings;
    FFTOC fft;
    PeakDataSetOC peaks;
};

// Pitch of a segment, in cents from truthHz; NaN when there is no pitch.
double centsOff(const Analyser::Result &result, double truthHz)
{
    return result.freq > 0.0 ? centsBetween(result.freq, truthHz)
                             : std::numeric_limits<double>::quiet_NaN();
}

TEST(PitchResultOC, harmonicTonesAreMeasuredWithinTwoCentsAcrossTheRange)
{
    Analyser analyser;
    int measured = 0;
    int rightOctave = 0;
    for (Timbre timbre : {Timbre::sawtooth, Timbre::clarinet, Timbre::weakFundamental}) {
        for (int note = 55; note <= 91; note++) {
            for (double detune : {-41.0, 0.0, 17.0}) {
                const double truth = detuneHz(noteToHz(note), detune);
                const auto seed = static_cast<std::uint32_t>(note * 7 + 3);
                const double cents =
                    centsOff(analyser.analyse(tone(
                                 {.freqHz = truth, .timbre = timbre, .seed = seed}, kSegLength)),
                             truth);
                measured++;
                if (!(std::abs(cents) < 600.0))
                    continue;
                rightOctave++;
                EXPECT_LT(std::abs(cents), 2.0)
                    << timbreName(timbre) << " note " << note << " detune " << detune;
            }
        }
    }
    // Octave errors are allowed, but rare on tones this clean.
    EXPECT_GE(rightOctave, measured * 95 / 100);
}

TEST(PitchResultOC, silenceHasNoPitchAndEverySpectrumValueAtTheFloor)
{
    Analyser analyser;
    const auto result = analyser.analyse(silence(kSegLength));
    EXPECT_EQ(result.freq, 0.0);
    EXPECT_EQ(result.goodness, 0.0);
    PitchResultOC pitch;
    pitch.setupWithSamples(silence(kSegLength).data(), analyser.fft, &analyser.peaks, 2, 100.0,
                           2000.0, 0.9, -80.0);
    pitch.compute();
    ASSERT_EQ(pitch.getFFTSize(), 513);
    for (int i = 0; i < pitch.getFFTSize(); i++)
        ASSERT_EQ(pitch.getFFTResult()[i], -80.0) << i;
    // The search leaves non-positive frequencies; on flat ground it stops after its first step.
    EXPECT_EQ(pitch.refineFreq(0.0), 0.0);
    EXPECT_EQ(pitch.refineFreq(-30.0), -30.0);
    EXPECT_DOUBLE_EQ(pitch.refineFreq(300.0), 300.0 * (1.0 + PitchResultOC::kFirstStep / 2.0));
}

TEST(PitchResultOC, spectrumIsHammingWeightedDecibelsOfFullScale)
{
    Analyser analyser;
    // A sine of half full scale centred on bin 20: amplitude × coherent gain 0.54 / 2 of the
    // segment, in dB relative to a full-scale segment.
    const double binHz = kSampleRate / kSegLength;
    const auto segment = sine(20.0 * binHz, 16384.0, kSegLength);
    PitchResultOC pitch;
    pitch.setupWithSamples(segment.data(), analyser.fft, nullptr, 2, 100.0, 2000.0, 0.9, -90.0);
    pitch.compute();
    EXPECT_NEAR(pitch.getFFTResult()[20], 20.0 * std::log10(0.5 * 0.54 / 2.0), 0.05);
    // Far from the tone the window's side lobes sink to the floor.
    EXPECT_EQ(pitch.getFFTResult()[400], -90.0);
    // Without a peak set there is no pitch search.
    EXPECT_EQ(pitch.getFreq(), 0.0);
    EXPECT_EQ(pitch.getGoodness(), 0.0);

    // Every value is the formula's to the last bit, at floors the side lobes cross (quiet bins
    // take the floor without a logarithm) and at floors no option range keeps out.
    FFTOC plain;
    plain.setupWithLogN(9);
    std::vector<double> windowed = segment;
    for (int i = 0; i < kSegLength; i++)
        windowed[static_cast<std::size_t>(i)] *=
            0.54 - 0.46 * std::cos(2.0 * std::numbers::pi * i / (kSegLength - 1));
    plain.compute(windowed.data());
    const double inf = std::numeric_limits<double>::infinity();
    for (double floor : {-90.0, -60.0, -120.0, -inf, inf, 7000.0, -7000.0}) {
        pitch.setupWithSamples(segment.data(), analyser.fft, nullptr, 2, 100.0, 2000.0, 0.9, floor);
        pitch.compute();
        for (int k = 0; k <= plain.getN(); k++) {
            const double v = plain.getValue(k);
            const double expected =
                v > 0.0 ? std::max(20.0 * std::log10(v / (kSegLength * 32768.0)), floor) : floor;
            ASSERT_EQ(pitch.getFFTResult()[k], expected) << "floor " << floor << " bin " << k;
        }
    }
}

TEST(PitchResultOC, quickDecibelsAreTheLibrarysWithinANanodecibel)
{
    // A rich spectrum, so that the loud bins span every binade from the floor to the top, and one
    // whose transform overflows; at floors the option range allows and beyond it.
    Analyser analyser;
    std::vector<double> rich =
        harmonics(311.0, {9000.0, 4000.0, 2500.0, 900.0, 300.0, 60.0}, kSegLength);
    mix(rich, whiteNoise(30.0, kSegLength, 3));
    std::vector<double> huge = sine(1000.0, 1e307, kSegLength);
    const double inf = std::numeric_limits<double>::infinity();
    for (const std::vector<double> *segment : {&rich, &huge}) {
        for (const double floor : {PeakDataSetOC::kDbLimit, -60.0, -300.0, -7000.0, -inf}) {
            SCOPED_TRACE("floor " + std::to_string(floor));
            PitchResultOC library;
            library.setupWithSamples(segment->data(), analyser.fft, nullptr, 2, 100.0, 2000.0, 0.9,
                                     floor);
            library.compute();
            const std::vector<double> expected(library.getFFTResult(),
                                               library.getFFTResult() + library.getFFTSize());
            PitchResultOC quick;
            quick.setQuickDecibels(true);
            quick.setupWithSamples(segment->data(), analyser.fft, nullptr, 2, 100.0, 2000.0, 0.9,
                                   floor);
            quick.compute();
            for (int k = 0; k < quick.getFFTSize(); k++) {
                const double got = quick.getFFTResult()[k];
                const double want = expected[static_cast<std::size_t>(k)];
                if (std::isfinite(want))
                    ASSERT_NEAR(got, want, 1e-9) << "bin " << k;
                else
                    ASSERT_EQ(got, want) << "bin " << k;
            }
        }
    }
    // The search on those decibels finds the same pitch.
    PitchResultOC library;
    library.setupWithSamples(rich.data(), analyser.fft, &analyser.peaks, 2,
                             analyser.settings.freqMin, analyser.settings.freqMax, 0.9,
                             PeakDataSetOC::kDbLimit);
    library.compute();
    PitchResultOC quick;
    quick.setQuickDecibels(true);
    quick.setupWithSamples(rich.data(), analyser.fft, &analyser.peaks, 2, analyser.settings.freqMin,
                           analyser.settings.freqMax, 0.9, PeakDataSetOC::kDbLimit);
    quick.compute();
    EXPECT_NEAR(centsBetween(quick.getFreq(), library.getFreq()), 0.0, 1e-6);
    EXPECT_NEAR(quick.getGoodness(), library.getGoodness(), 1e-6 * library.getGoodness());
}

TEST(PitchResultOC, wavFileSegmentsGiveTheSamePitchAsTheirSamples)
{
    Analyser analyser;
    const double truth = noteToHz(62);
    auto signal = tone({.freqHz = truth, .amplitude = 6000.0}, 3 * kSegLength);
    for (double &v : signal)
        v = std::round(v);
    const auto noise = whiteNoise(500.0, 3 * kSegLength, 9);

    TempWav mono(signal, {}, 2);
    ASSERT_TRUE(mono.ok());
    WavFileOC wav;
    ASSERT_TRUE(wav.setupFromPath(mono.path()));
    const int start = 700;
    PitchResultOC fromFile;
    ASSERT_TRUE(fromFile.setupFromWavFile(wav, 2 * start, analyser.fft, &analyser.peaks, 2,
                                          analyser.settings.freqMin, analyser.settings.freqMax, 0.9,
                                          analyser.settings.dbLimit));
    fromFile.compute();
    const std::vector<double> segment(signal.begin() + start, signal.begin() + start + kSegLength);
    const auto fromSamples = analyser.analyse(segment);
    EXPECT_GT(fromSamples.freq, 0.0);
    EXPECT_EQ(fromFile.getFreq(), fromSamples.freq);
    EXPECT_EQ(fromFile.getGoodness(), fromSamples.goodness);

    // Stereo is mixed to the mean of both channels; 8-bit sound still gives the pitch.
    auto left = signal;
    auto right = signal;
    mix(left, noise);
    for (std::size_t i = 0; i < right.size(); i++)
        right[i] -= noise[i];
    std::vector<double> small(signal.size());
    for (std::size_t i = 0; i < small.size(); i++)
        small[i] = signal[i] / 60.0;
    const TempWav stereo(left, right, 2);
    const TempWav eightBit(small, {}, 1);
    for (const TempWav *file : {&stereo, &eightBit}) {
        ASSERT_TRUE(file->ok());
        WavFileOC other;
        ASSERT_TRUE(other.setupFromPath(file->path()));
        PitchResultOC pitch;
        const int frameBytes = other.getNChannels() * other.getBytesPerSample();
        ASSERT_TRUE(pitch.setupFromWavFile(other, frameBytes * start, analyser.fft, &analyser.peaks,
                                           2, analyser.settings.freqMin, analyser.settings.freqMax,
                                           0.9, analyser.settings.dbLimit));
        pitch.compute();
        EXPECT_LT(std::abs(centsBetween(pitch.getFreq(), fromSamples.freq)), 2.0) << file->path();
    }
}

// A single spectral peak at x: the only candidate, whose goodness is highest at x itself.
struct SinglePeak
{
    SinglePeak()
    {
        analyser.analyse(sine(noteToHz(81), 100.0, kSegLength));
        x = analyser.peaks.getHighestXAtRank(0);
    }

    // Goodness evaluations of one segment with the given range.
    int evaluations(double freqMin, double freqMax, double *freq = nullptr)
    {
        analyser.settings.freqMin = freqMin;
        analyser.settings.freqMax = freqMax;
        const auto result = analyser.analyse(sine(noteToHz(81), 100.0, kSegLength));
        if (freq != nullptr)
            *freq = result.freq;
        return analyser.peaks.getGoodnessCount();
    }

    Analyser analyser;
    double x = 0.0;
};

TEST(PitchResultOC, subharmonicsAreTriedDownToTheLowestPitchInclusive)
{
    SinglePeak peak;
    ASSERT_GT(peak.x, 800.0);
    ASSERT_EQ(peak.analyser.peaks.getHighestXAtRank(1), -1.0);
    // x/3 exactly at the lowest pitch is scored; a hair above, it is not; x/4 never is.
    const double high = 4.0 * peak.x;
    const int withThird = peak.evaluations(peak.x / 3.0, high);
    EXPECT_EQ(peak.evaluations(std::nextafter(peak.x / 3.0, high), high), withThird - 1);
    EXPECT_EQ(peak.evaluations(std::nextafter(peak.x / 4.0, high), high), withThird);
    EXPECT_EQ(peak.evaluations(peak.x / 4.0, high), withThird + 1);
    // A candidate below the lowest pitch is not tried at all.
    EXPECT_EQ(peak.evaluations(std::nextafter(peak.x, high), high), 0);
}

TEST(PitchResultOC, candidateAtTheHighestPitchIsNotScoredButItsSubharmonicsAre)
{
    SinglePeak peak;
    double freq = -1.0;
    // Only x could be tried, and it lies at the (exclusive) top of the range: nothing.
    EXPECT_EQ(peak.evaluations(0.6 * peak.x, peak.x, &freq), 0);
    EXPECT_EQ(freq, 0.0);
    // Just above x it is scored and refined to a pitch inside the range.
    EXPECT_GT(peak.evaluations(0.6 * peak.x, 1.2 * peak.x, &freq), 1);
    EXPECT_GE(freq, 0.6 * peak.x);
    EXPECT_LT(freq, 1.2 * peak.x);
    // With x out of range its half is still scored.
    EXPECT_GE(peak.evaluations(0.4 * peak.x, peak.x), 1);
}

TEST(PitchResultOC, refinedPitchIsTheBestGoodnessNearTheCandidate)
{
    Analyser analyser;
    for (int note : {58, 69, 83}) {
        const double truth = detuneHz(noteToHz(note), 23.0);
        const auto result = analyser.analyse(tone({.freqHz = truth}, kSegLength));
        ASSERT_GT(result.freq, 0.0);
        // The goodness reported is the goodness at the pitch, and nothing within ±30 cents
        // beats it by more than the last bracket's slack.
        EXPECT_EQ(analyser.peaks.computeGoodnessForFreq(result.freq), result.goodness);
        for (double cents = -30.0; cents <= 30.0; cents += 0.5)
            EXPECT_LT(analyser.peaks.computeGoodnessForFreq(detuneHz(result.freq, cents)),
                      result.goodness * 1.01)
                << note << " " << cents;
    }
}

TEST(PitchResultOC, narrowingShrinksTheLargerGapWhereverTheOuterPointsLie)
{
    // A smooth, lopsided hill with its top at 2.5: from the bracket 0 < 1 < 4 the top lies in
    // the larger gap while the outer point of the smaller gap (0) scores higher than 4. Mirrored,
    // the same from the other side.
    const auto hill = [](double x) { return (x - 2.5) - std::exp(x - 2.5); };
    for (double side : {1.0, -1.0}) {
        const auto g = [&](double x) { return hill(side * x); };
        PitchResultOC::GoldenBracket bracket{0.0, g(0.0), side, g(side), 4.0 * side, g(4.0 * side)};
        if (side < 0.0) {
            std::swap(bracket.a, bracket.c);
            std::swap(bracket.ga, bracket.gc);
        }
        ASSERT_GT(g(0.0), g(4.0 * side));
        const double h = 1e-3;
        const double top = PitchResultOC::narrowBracket(bracket, 4.0, h, g);
        // Both gaps shrank to about the last step, around the top.
        EXPECT_LT(bracket.a, 2.5 * side) << side;
        EXPECT_GT(bracket.c, 2.5 * side) << side;
        EXPECT_LT(bracket.c - bracket.a, 4.0 * h) << side;
        EXPECT_NEAR(top, 2.5 * side, h) << side;
    }
    // Equal gaps: the right one is probed first.
    std::vector<double> probes;
    PitchResultOC::GoldenBracket even{-1.0, -1.0, 0.0, 0.0, 1.0, -1.0};
    (void)PitchResultOC::narrowBracket(even, 1.0, 1.0, [&](double x) {
        probes.push_back(x);
        return -x * x;
    });
    ASSERT_EQ(probes.size(), 1u);
    EXPECT_GT(probes[0], 0.0);
}

TEST(PitchResultOC, nonFiniteSamplesAndNonsenseSettingsNeverHangOrCrash)
{
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    constexpr double inf = std::numeric_limits<double>::infinity();
    const auto clean = tone({.freqHz = noteToHz(69)}, kSegLength);
    for (double bad : {nan, inf, -inf}) {
        Analyser analyser;
        ASSERT_GT(analyser.analyse(clean).freq, 0.0);
        const int cleanPeaks = analyser.peaks.getNPeaks();
        auto segment = clean;
        segment[500] = bad;
        const auto result = analyser.analyse(segment);
        EXPECT_EQ(result.freq, 0.0) << bad;
        EXPECT_EQ(result.goodness, 0.0) << bad;
        // The search is not even started: the peak set keeps the last segment's peaks.
        EXPECT_EQ(analyser.peaks.getNPeaks(), cleanPeaks) << bad;
    }

    // Every option that reaches the analysis unchecked, at its worst.
    std::vector<Settings> nonsense;
    for (double v : {nan, inf, -inf, 0.0, -3.0, 1e-300}) {
        for (double Settings::*field : {&Settings::freqMin, &Settings::freqMax, &Settings::dbLimit,
                                        &Settings::goodnessThreshold, &Settings::minThreshold,
                                        &Settings::threshIncrement, &Settings::lowFreq}) {
            Settings s;
            s.*field = v;
            nonsense.push_back(s);
        }
    }
    for (int n : {0, -1, 4, std::numeric_limits<int>::max()}) {
        Settings s;
        s.nHighest = n;
        nonsense.push_back(s);
    }
    for (const Settings &settings : nonsense) {
        Analyser analyser(settings);
        for (const auto &segment : {clean, whiteNoise(3000.0, kSegLength, 5)}) {
            const auto result = analyser.analyse(segment);
            if (result.freq != 0.0) {
                EXPECT_GE(result.freq, settings.freqMin);
                EXPECT_LT(result.freq, settings.freqMax);
            }
        }
    }
}

// Results of a fixed set of segments, analysed with one transform and one peak set.
std::vector<Analyser::Result> analyseAll(const std::vector<std::vector<double>> &segments)
{
    Analyser analyser;
    std::vector<Analyser::Result> results;
    for (const auto &segment : segments)
        results.push_back(analyser.analyse(segment));
    return results;
}

TEST(PitchResultOC, segmentsOnTwoThreadsGiveTheResultsOfOne)
{
    std::vector<std::vector<double>> segments;
    for (int note = 55; note <= 91; note += 3) {
        segments.push_back(tone({.freqHz = noteToHz(note),
                                 .timbre = allTimbres()[static_cast<std::size_t>(note) % 5],
                                 .vibratoHz = 6.0,
                                 .vibratoDepthCents = 15.0},
                                kSegLength));
        segments.push_back(whiteNoise(2000.0, kSegLength, static_cast<std::uint32_t>(note)));
    }
    const auto alone = analyseAll(segments);
    std::vector<Analyser::Result> first;
    std::vector<Analyser::Result> second;
    std::thread one([&] { first = analyseAll(segments); });
    std::thread two([&] { second = analyseAll(segments); });
    one.join();
    two.join();
    ASSERT_EQ(first.size(), alone.size());
    ASSERT_EQ(second.size(), alone.size());
    int pitched = 0;
    for (std::size_t i = 0; i < alone.size(); i++) {
        EXPECT_EQ(first[i].freq, alone[i].freq) << i;
        EXPECT_EQ(second[i].freq, alone[i].freq) << i;
        EXPECT_EQ(first[i].goodness, alone[i].goodness) << i;
        EXPECT_EQ(second[i].goodness, alone[i].goodness) << i;
        pitched += alone[i].freq > 0.0 ? 1 : 0;
    }
    EXPECT_GT(pitched, 10);
}

} // namespace
} // namespace quorval
