#include "analysis/PitchRefinerOC.h"

#include "analysis/FFTOC.h"
#include "analysis/PeakDataSetOC.h"
#include "analysis/PitchResultOC.h"
#include "analysis/tests/support/TestSignals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <new>
#include <numbers>
#include <string>
#include <vector>

// Every allocation of the test program counted, so that a test can show a stretch of code makes
// none.
namespace {
std::atomic<long> allocations{0};
} // namespace

void *operator new(std::size_t size)
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void *p = std::malloc(size > 0 ? size : 1))
        return p;
    throw std::bad_alloc();
}

void operator delete(void *p) noexcept
{
    std::free(p);
}

void operator delete(void *p, std::size_t) noexcept
{
    std::free(p);
}

namespace quorval {
namespace {

using namespace testsignals;

constexpr int kSegLength = 1024;
const double kHzPerBin = kSampleRate / kSegLength;
// The default note range, 55 to 91, with two semitones on either side.
const double kFreqMin = noteToHz(53.0);
const double kFreqMax = noteToHz(93.0);

// The harmonic search of one segment, as the pitch stream sets it up, and its refinement.
struct Analysis
{
    Analysis()
    {
        (void)fft.setupWithLogN(9);
        (void)peaks.setupWithN(fft.getN() + 1, fft.getResult(), 0.5, kHzPerBin, kFreqMin,
                               std::sqrt(2.0));
        ok = refiner.setupWithNFrames(kSegLength, kHzPerBin);
    }

    // The search's pitch and the refined one, Hz.
    std::pair<double, double> pitches(const double *segment)
    {
        result.setupWithSamples(segment, fft, &peaks, 2, kFreqMin, kFreqMax, 0.9,
                                PeakDataSetOC::kDbLimit);
        refiner.setSamples(segment);
        result.compute();
        return {result.getFreq(), refiner.refine(result.getFreq(), kFreqMin, kFreqMax)};
    }

    FFTOC fft;
    PeakDataSetOC peaks;
    PitchResultOC result;
    PitchRefinerOC refiner;
    bool ok = false;
};

TEST(PitchRefinerOC, candidatesAnOctaveOrTwelfthOffMoveToThePitch)
{
    PitchRefinerOC refiner;
    ASSERT_TRUE(refiner.setupWithNFrames(kSegLength, kHzPerBin));
    for (const Timbre timbre : {Timbre::sawtooth, Timbre::clarinet, Timbre::weakFundamental}) {
        for (const double note : {62.3, 70.8, 77.4}) {
            SCOPED_TRACE(std::string(timbreName(timbre)) + " at note " + std::to_string(note));
            const double f = noteToHz(note);
            Tone shape{.freqHz = f, .timbre = timbre, .seed = static_cast<std::uint32_t>(note)};
            std::vector<double> segment = tone(shape, kSegLength);
            mix(segment, whiteNoise(200.0, kSegLength, 7));
            refiner.setSamples(segment.data());
            // A start a few cents off, as the search leaves it, at the pitch and its relatives.
            for (const double factor : {1.0, 0.5, 1.0 / 3.0, 2.0}) {
                const double start = detuneHz(f * factor, 4.0);
                if (!(start >= kFreqMin && start < kFreqMax))
                    continue;
                EXPECT_NEAR(centsBetween(refiner.refine(start, kFreqMin, kFreqMax), f), 0.0, 0.5)
                    << "starting at " << factor << " × the pitch";
            }
        }
    }
    // A voice whose formant lifts its fifth harmonic above the rest, which the search's octave
    // above misses: the strongest partial is a harmonic of the pitch, and the octave below the
    // search's holds it.
    for (const double f : {180.0, 230.0, 301.0}) {
        SCOPED_TRACE(std::to_string(f) + " Hz, fifth harmonic strongest");
        std::vector<double> segment =
            harmonics(f, {2500.0, 3000.0, 1500.0, 2000.0, 8000.0, 1200.0, 600.0}, kSegLength);
        mix(segment, whiteNoise(200.0, kSegLength, 3));
        refiner.setSamples(segment.data());
        EXPECT_NEAR(centsBetween(refiner.refine(detuneHz(2.0 * f, 4.0), kFreqMin, kFreqMax), f),
                    0.0, 0.5);
    }
    // A sine has no harmonics to tell octaves apart: it stays where it is.
    const std::vector<double> pure = sine(440.0, 8000.0, kSegLength);
    refiner.setSamples(pure.data());
    EXPECT_NEAR(centsBetween(refiner.refine(440.0, kFreqMin, kFreqMax), 440.0), 0.0, 0.2);
}

TEST(PitchRefinerOC, fixesTheOctaveErrorsOfTheSearchInNoise)
{
    // Odd-harmonic and weak-fundamental tones at 10 dB SNR: the search's side-lobe and noise
    // peaks make it take the octave below now and then.
    Analysis analysis;
    ASSERT_TRUE(analysis.ok);
    int searchOctaves = 0;
    int refinedOff = 0;
    for (const Timbre timbre : {Timbre::clarinet, Timbre::weakFundamental}) {
        for (int i = 0; i < 24; i++) {
            const double f = noteToHz(65.0 + i);
            Tone shape{.freqHz = f, .timbre = timbre, .seed = static_cast<std::uint32_t>(i + 1)};
            std::vector<double> segment = tone(shape, kSegLength);
            double power = 0.0;
            for (double v : segment)
                power += v * v;
            const double rms = std::sqrt(power / kSegLength);
            // Uniform noise of amplitude a has RMS a / √3.
            mix(segment, whiteNoise(rms * std::sqrt(3.0) / std::sqrt(10.0), kSegLength,
                                    static_cast<std::uint32_t>(100 + i)));
            const auto [search, refined] = analysis.pitches(segment.data());
            const double searchCents = search > 0.0 ? std::abs(centsBetween(search, f)) : NAN;
            const bool octave = std::abs(searchCents - 1200.0) < 50.0;
            searchOctaves += octave ? 1 : 0;
            // Octaves are the matter here (precision is the next test's), and the search's own
            // answer or its octave is where the refinement starts from.
            if ((octave || searchCents < 50.0) && !(std::abs(centsBetween(refined, f)) < 50.0))
                refinedOff++;
        }
    }
    ASSERT_GT(searchOctaves, 0) << "no octave error left for the refinement to fix";
    EXPECT_EQ(refinedOff, 0);
}

TEST(PitchRefinerOC, layeredVoicesThatBeatKeepTheirOctave)
{
    // A choir-like vowel: three layers a few cents apart, the second harmonic the strongest and
    // the odd ones weak. Where the layers beat, the odd harmonics fade for a segment and the
    // strongest partial's phase advance points a bin or more away from it; neither may move the
    // pitch off the note.
    PitchRefinerOC refiner;
    ASSERT_TRUE(refiner.setupWithNFrames(kSegLength, kHzPerBin));
    const std::vector<double> vowel = {400.0, 3000.0, 400.0, 1200.0, 400.0, 200.0, 100.0, 50.0};
    const int length = 24 * kSegLength;
    int off = 0;
    int segments = 0;
    for (const double f : {205.0, 231.0, 262.0, 317.0}) {
        std::vector<double> x = silence(length);
        for (const double cents : {-9.0, 0.0, 13.0})
            mix(x, harmonics(detuneHz(f, cents), vowel, length));
        for (int start = 0; start + kSegLength <= length; start += kSegLength / 2) {
            refiner.setSamples(x.data() + start);
            const double refined = refiner.refine(detuneHz(f, 5.0), kFreqMin, kFreqMax);
            segments++;
            if (!(std::abs(centsBetween(refined, f)) < 50.0)) {
                off++;
                ADD_FAILURE() << f << " Hz at sample " << start << ": " << refined << " Hz";
            }
        }
    }
    EXPECT_EQ(off, 0) << "of " << segments << " segments";
}

TEST(PitchRefinerOC, anEnsembleOfVoicesIsDrawnBrightAtTheMeanOfTheirPitches)
{
    // Voices a few cents apart, each with a vibrato of its own: their partials are clusters whose
    // bins point a few tenths of a bin apart, yet the ear hears one clear pitch, the mean of
    // theirs. Segments as the stream hands them over, with the half segments beside them.
    PitchRefinerOC refiner;
    ASSERT_TRUE(refiner.setupWithNFrames(kSegLength, kHzPerBin));
    const std::vector<double> vowel = {1000.0, 3000.0, 1400.0, 1200.0, 600.0, 300.0, 150.0};
    const double voices[][3] = {
        {-12.0, 4.9, 0.0}, {0.0, 5.6, 2.1}, {9.0, 5.2, 4.0}, {17.0, 6.1, 1.0}};
    // A voice's pitch, cents about the note, t seconds in.
    const auto voiceCents = [](const double(&voice)[3], double t) {
        return voice[0] + 25.0 * std::sin(2.0 * std::numbers::pi * voice[1] * t + voice[2]);
    };
    const int length = 24 * kSegLength;
    const int half = kSegLength / 2;
    int dim = 0;
    int segments = 0;
    int octaves = 0;
    std::vector<double> errors;
    for (const double f : {205.0, 262.0, 317.0, 390.0}) {
        SCOPED_TRACE(std::to_string(f) + " Hz");
        std::vector<double> x = silence(length);
        for (const auto &voice : voices) {
            double phase = 0.0;
            for (std::size_t i = 0; i < x.size(); i++) {
                const double t = static_cast<double>(i) / kSampleRate;
                phase += 2.0 * std::numbers::pi / kSampleRate * detuneHz(f, voiceCents(voice, t));
                for (std::size_t k = 1; k <= vowel.size(); k++)
                    x[i] += vowel[k - 1] * std::sin(static_cast<double>(k) * (phase + voice[2]));
            }
        }
        double sum = 0.0;
        int n = 0;
        for (int start = half; start + kSegLength + half <= length; start += half) {
            refiner.setSamples(x.data() + start, x.data() + start - half,
                               x.data() + start + kSegLength);
            const double pitch = refiner.refine(detuneHz(f, 5.0), kFreqMin, kFreqMax);
            segments++;
            dim += refiner.getGoodness() < 100.0 ? 1 : 0;
            const double t = (start + 0.5 * kSegLength) / kSampleRate;
            double mean = 0.0;
            for (const auto &voice : voices)
                mean += detuneHz(f, voiceCents(voice, t)) / std::size(voices);
            const double cents = centsBetween(pitch, mean);
            // Two voices half a period apart for a while sound as the octave above: their odd
            // harmonics cancel, on both sides of the segment too.
            if (std::abs(cents) >= 50.0) {
                octaves += std::abs(std::abs(cents) - 1200.0) < 50.0 ? 1 : 0;
                continue;
            }
            errors.push_back(std::abs(cents));
            sum += cents;
            n++;
        }
        // The note's mean, what a singer is told, within a couple of cents.
        EXPECT_NEAR(sum / n, 0.0, 2.0);
    }
    EXPECT_LE(dim, segments / 20) << "of " << segments << " segments drawn dim";
    EXPECT_EQ(static_cast<int>(errors.size()) + octaves, segments) << "only octaves far off";
    EXPECT_LE(octaves, segments / 30);
    std::sort(errors.begin(), errors.end());
    // Each segment follows the voices' mean, not whichever of them its strongest bins favour.
    EXPECT_LT(errors[errors.size() * 9 / 10], 10.0)
        << "cents from the voices' mean, 90th percentile";
}

TEST(PitchRefinerOC, anAttacksFaintPartialsBetweenTheHarmonicsDoNotPullItAnOctaveDown)
{
    // A reed's attack: a weak fundamental under a strong second harmonic, and faint partials at
    // one and a half and two and a half times the pitch, a few cents off, 15 to 25 dB below the
    // strongest. Started from the octave below, as the search reads it, the pitch is the note.
    // A low note whose fundamental is missing but whose odd harmonics hold a real share (7 %) keeps
    // its octave.
    PitchRefinerOC refiner;
    ASSERT_TRUE(refiner.setupWithNFrames(kSegLength, kHzPerBin));
    for (const double f : {392.0, 440.0, 523.3, 587.3}) {
        SCOPED_TRACE(std::to_string(f) + " Hz");
        std::vector<double> attack = harmonics(f, {800.0, 8000.0, 1400.0, 400.0}, kSegLength);
        mix(attack, sine(detuneHz(1.5 * f, 20.0), 650.0, kSegLength));
        mix(attack, sine(detuneHz(2.5 * f, 8.0), 1500.0, kSegLength));
        refiner.setSamples(attack.data());
        EXPECT_NEAR(centsBetween(refiner.refine(detuneHz(0.5 * f, 4.0), kFreqMin, kFreqMax), f),
                    0.0, 50.0);

        const double low = 0.5 * f;
        const std::vector<double> formant =
            harmonics(low, {0.0, 2400.0, 1800.0, 8000.0, 1600.0, 1600.0}, kSegLength);
        refiner.setSamples(formant.data());
        EXPECT_NEAR(centsBetween(refiner.refine(detuneHz(low, 4.0), kFreqMin, kFreqMax), low), 0.0,
                    50.0);

        // And one whose fundamental wavers, so that no bin points at it, though it is loud.
        std::vector<double> wavering = harmonics(low, {0.0, 8000.0, 900.0, 1600.0}, kSegLength);
        mix(wavering, sine(low * 0.94, 4000.0, kSegLength));
        mix(wavering, sine(low * 1.07, 3000.0, kSegLength));
        refiner.setSamples(wavering.data());
        EXPECT_NEAR(centsBetween(refiner.refine(detuneHz(low, 4.0), kFreqMin, kFreqMax), low), 0.0,
                    50.0);
    }
}

// A refiner for segments of 2048 samples, as the pitch stream cuts low notes, asked about a
// segment alone or with the half segments beside it, over a note range from to to (Hz).
struct LongSegments
{
    static constexpr int kLength = 2048;

    LongSegments(double from, double to) : from(from), to(to)
    {
        ok = refiner.setupWithNFrames(kLength, kSampleRate / kLength);
    }
    double alone(const double *segment, double freq)
    {
        refiner.setSamples(segment);
        return refiner.refine(freq, from, to);
    }
    double beside(const double *segment, double freq)
    {
        refiner.setSamples(segment, segment - kLength / 2, segment + kLength);
        return refiner.refine(freq, from, to);
    }

    double from;
    double to;
    PitchRefinerOC refiner;
    bool ok = false;
};

TEST(PitchRefinerOC, aNoteAttackedAfterALowerOneKeepsItsOctaveFromTheSoundBesideIt)
{
    // A low note, then a note a fourth or a fifth above it with a weak fundamental, whose first
    // tens of milliseconds hold partials halfway between its own (a reed doubling its period).
    // The segment holds the end of the first note and that attack, its centre in the new note;
    // alone it reads the octave below; with the steady note after it, the note itself. The answer
    // is the sound's: a refiner that has just refined other segments gives the same. Low notes
    // that hold their own octave beside the segment keep it.
    constexpr int kLength = LongSegments::kLength;
    LongSegments refiner(noteToHz(40.0), noteToHz(67.0));
    ASSERT_TRUE(refiner.ok);
    // The low note, the interval up, how strong the halfway partials are.
    const struct
    {
        double low, ratio, halfway;
    } cases[] = {{130.8, 4.0 / 3.0, 1000.0},
                 {146.8, 1.5, 1500.0},
                 {164.8, 4.0 / 3.0, 1000.0},
                 {196.0, 1.5, 1500.0}};
    for (const auto &c : cases) {
        const double high = c.ratio * c.low;
        SCOPED_TRACE(std::to_string(c.low) + " Hz to " + std::to_string(high) + " Hz");
        constexpr int kSound = 4 * kLength;
        constexpr int kChange = 2 * kLength;
        constexpr int kAttack = kLength / 2;
        const std::vector<double> sound =
            attackAfterLowerNote(c.low, high, c.halfway, kChange, kAttack, kSound);
        // The segment's centre a quarter of the attack into the new note.
        const double *segment = sound.data() + kChange - kLength / 2 + kAttack / 4;
        EXPECT_NEAR(centsBetween(refiner.alone(segment, 0.5 * high), 0.5 * high), 0.0, 50.0);
        const double beside = refiner.beside(segment, 0.5 * high);
        // The end of the low note still in the segment pulls the measurement by a few cents.
        EXPECT_NEAR(centsBetween(beside, high), 0.0, 25.0);

        // A low note of that kind (weak fundamental, its odd harmonics weak but there) leaping
        // to its octave: its last segment, the centre in it, keeps its octave.
        std::vector<double> leap =
            harmonics(0.5 * high, {300.0, 8000.0, 3500.0, 4000.0, 1000.0, 1500.0}, kSound);
        const std::vector<double> octave = harmonics(high, {8000.0, 4000.0, 1500.0}, kSound);
        std::copy(octave.begin() + kChange, octave.end(), leap.begin() + kChange);
        const double *end = leap.data() + kChange - kLength / 2 - kAttack / 4;
        EXPECT_NEAR(centsBetween(refiner.beside(end, 0.5 * high), 0.5 * high), 0.0, 25.0);

        // A low voice laying nearly all its power on the even harmonics for its whole length,
        // its fundamental faint (25 dB down) but there: beside the segment it is the same note.
        const std::vector<double> voice =
            harmonics(0.5 * high, {480.0, 8000.0, 800.0, 4000.0, 240.0, 2400.0}, kSound);
        const double *middle = voice.data() + kChange - kLength / 2;
        EXPECT_NEAR(centsBetween(refiner.beside(middle, 0.5 * high), 0.5 * high), 0.0, 25.0);

        // A bowed low note whose fundamental and odd harmonics all but fade for a segment (a
        // vibrato through the body's resonances): alone it reads the octave above; the note
        // beside it holds them, and the segment keeps its octave.
        std::vector<double> thinning =
            harmonics(0.5 * high, {3000.0, 8000.0, 2500.0, 3000.0, 1000.0, 1500.0}, kSound);
        const std::vector<double> thin =
            harmonics(0.5 * high, {0.0, 8000.0, 1300.0, 3000.0, 300.0, 1500.0}, kSound);
        // Thin across the segment, fading in and out over 6 ms either side of it.
        constexpr int kFade = 256;
        for (int i = kChange - kLength / 2 - kFade; i < kChange + kLength / 2 + kFade; i++) {
            const double x =
                std::min(1.0, (kLength / 2 + kFade - std::abs(i - kChange)) / double(kFade));
            const double w = 0.5 - 0.5 * std::cos(std::numbers::pi * x);
            thinning[std::size_t(i)] += w * (thin[std::size_t(i)] - thinning[std::size_t(i)]);
        }
        const double *thinnest = thinning.data() + kChange - kLength / 2;
        EXPECT_NEAR(centsBetween(refiner.alone(thinnest, 0.5 * high), high), 0.0, 25.0);
        EXPECT_NEAR(centsBetween(refiner.beside(thinnest, 0.5 * high), 0.5 * high), 0.0, 25.0);

        LongSegments fresh(refiner.from, refiner.to);
        ASSERT_TRUE(fresh.ok);
        EXPECT_EQ(fresh.beside(segment, 0.5 * high), beside);
    }
}

// A reed's partials, the second the strongest.
const std::vector<double> kReed = {3000.0, 4000.0, 2500.0, 2000.0, 1500.0, 1200.0,
                                   800.0,  600.0,  400.0,  300.0,  200.0,  150.0};

TEST(PitchRefinerOC, aSegmentAcrossASlurredChangeReadsTheNoteAtItsCentre)
{
    // A reed's slur by a semitone or a tone: the first note, still loud, fades out over 10 ms
    // as the next fades in. A segment whose centre lies just past the change holds both; their
    // partials blend in each main lobe, which alone can read tens of cents off either note, and
    // a bright first note's strongest partial, a semitone off a harmonic of the next, can pass
    // for that harmonic pulled off. Half a segment after the centre the next note is steady,
    // half a segment before it the two are mixed: the segment reads the next note, as the search
    // does. The sides never make a segment worse, and a steady note keeps its own reading.
    constexpr int kLength = LongSegments::kLength;
    LongSegments refiner(noteToHz(38.0), noteToHz(62.0));
    ASSERT_TRUE(refiner.ok);
    const std::vector<double> bright = {800.0,  1000.0, 1500.0, 2500.0, 6000.0, 2500.0,
                                        1500.0, 1000.0, 600.0,  400.0,  300.0,  200.0};
    constexpr int kSound = 4 * kLength;
    constexpr int kChange = 2 * kLength;
    constexpr int kFade = 441;
    int mended = 0;
    for (const std::vector<double> *timbre : {&kReed, &bright}) {
        for (const double first : {110.0, 146.8, 174.6}) {
            for (const double semitones : {1.0, -1.0, 2.0}) {
                const double next = first * std::exp2(semitones / 12.0);
                SCOPED_TRACE(std::to_string(first) + " Hz to " + std::to_string(next) + " Hz" +
                             (timbre == &bright ? ", bright" : ""));
                const std::vector<double> a = harmonics(first, *timbre, kSound);
                const std::vector<double> b = harmonics(next, kReed, kSound);
                std::vector<double> sound(kSound);
                for (int i = 0; i < kSound; i++) {
                    const double x = std::clamp((i - (kChange - kFade)) / double(kFade), 0.0, 1.0);
                    sound[std::size_t(i)] =
                        2.0 * a[std::size_t(i)] * (1.0 - x) + b[std::size_t(i)] * x;
                }
                for (const int past : {kLength / 16, kLength / 8, kLength / 4}) {
                    const double *segment = sound.data() + kChange + past - kLength / 2;
                    const double alone = centsBetween(refiner.alone(segment, next), next);
                    const double beside = centsBetween(refiner.beside(segment, next), next);
                    EXPECT_LE(std::abs(beside), std::abs(alone) + 1e-9) << past;
                    // Where the loud first note holds most of the segment's power, the search
                    // would read it; a bright one's strongest partial alone must not draw the
                    // segment to it.
                    if (timbre == &bright) {
                        EXPECT_LT(std::abs(beside), 12.0) << past;
                    }
                    if (std::abs(alone) > 10.0 && std::abs(beside) < 1.0)
                        mended++;
                }
                const double *steady = b.data() + kChange;
                const double alone = refiner.alone(steady, next * 1.003);
                EXPECT_EQ(refiner.beside(steady, next * 1.003), alone);
                EXPECT_NEAR(centsBetween(alone, next), 0.0, 0.5);
            }
        }
    }
    EXPECT_GE(mended, 4);
}

// A held note of kReed's timbre whose vibrato dips sharply below the note, cents(θ) =
// 42 (0.31 − q), q = ((1 − cos θ) / 2)³, at 5.5 Hz, as a bowed string's can; its upper partials
// fade in the dip, as partials passing through a resonance do. The dip's deepest point lies at
// sample trough, where the pitch is 29 cents below the note.
std::vector<double> dippingVibrato(double f, int trough, int nSamples)
{
    std::vector<double> sound(std::size_t(nSamples), 0.0);
    double phase = 0.0;
    for (int i = 0; i < nSamples; i++) {
        const double theta =
            std::numbers::pi + 2.0 * std::numbers::pi * 5.5 * (i - trough) / kSampleRate;
        const double q = std::pow(0.5 - 0.5 * std::cos(theta), 3.0);
        for (std::size_t h = 1; h <= kReed.size(); h++)
            sound[std::size_t(i)] += kReed[h - 1] * (h == 1 ? 1.0 : std::pow(1.0 - q, 4.0)) *
                                     std::sin(double(h) * phase);
        phase += 2.0 * std::numbers::pi * detuneHz(f, 42.0 * (0.31 - q)) / kSampleRate;
    }
    return sound;
}

TEST(PitchRefinerOC, aBriefNoteAtASegmentsCentreDoesNotPullItOffTheNoteAroundIt)
{
    // A held reed note with 20 ms of a loud note a semitone above at a segment's centre (a grace
    // note, another part's bleed): alone the segment reads tens of cents off; half a segment
    // before and after, the held note is steady on both sides, and the segment reads it. A
    // vibrato's dip at the centre also reads off both sides, which agree about it, but is the
    // pitch there: the segment keeps its own reading.
    constexpr int kLength = LongSegments::kLength;
    LongSegments refiner(noteToHz(38.0), noteToHz(62.0));
    ASSERT_TRUE(refiner.ok);
    constexpr int kSound = 4 * kLength;
    constexpr int kCentre = 2 * kLength;
    const int half = static_cast<int>(0.010 * kSampleRate);
    int pulled = 0;
    for (const double f : {110.0, 146.8, 174.6, 220.0, 261.6}) {
        SCOPED_TRACE(std::to_string(f) + " Hz");
        std::vector<double> sound = harmonics(f, kReed, kSound);
        const std::vector<double> grace = harmonics(f * std::exp2(1.0 / 12.0), kReed, kSound);
        for (int i = kCentre - half; i < kCentre + half; i++) {
            const double x = (i - (kCentre - half)) / (2.0 * half);
            sound[std::size_t(i)] +=
                2.0 * (0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * x)) * grace[std::size_t(i)];
        }
        const double *segment = sound.data() + kCentre - kLength / 2;
        const double alone = centsBetween(refiner.alone(segment, f * 1.01), f);
        const double beside = centsBetween(refiner.beside(segment, f * 1.01), f);
        pulled += std::abs(alone) > 10.0 ? 1 : 0;
        // Never worse than alone; off the note only where alone it was too.
        EXPECT_LE(std::abs(beside), std::abs(alone) + 1e-9);
        if (std::abs(alone) > 30.0) {
            EXPECT_LT(std::abs(beside), 1.0);
        }

        const std::vector<double> dip = dippingVibrato(f, kCentre, kSound);
        const double *atDip = dip.data() + kCentre - kLength / 2;
        // The search, led by the upper partials either side of the dip, reads near the note.
        const double own = refiner.alone(atDip, f);
        EXPECT_NEAR(centsBetween(own, f), -29.0, 8.0);
        EXPECT_EQ(refiner.beside(atDip, f), own);
    }
    EXPECT_GE(pulled, 3);
}

// A nearly pure tone centred at sample centre: a fundamental whose cents against f follow
// course(seconds from the centre), and faint second and fifth partials held at 2f and 5f.
template <typename Course>
std::vector<double> loudFundamental(double f, int centre, int nSamples, double second, double fifth,
                                    Course course)
{
    std::vector<double> sound(std::size_t(nSamples), 0.0);
    double phase = 0.0;
    for (int i = 0; i < nSamples; i++) {
        const double t = double(i) / kSampleRate;
        sound[std::size_t(i)] =
            3000.0 * (std::sin(phase) + second * std::sin(2.0 * std::numbers::pi * 2.0 * f * t) +
                      fifth * std::sin(2.0 * std::numbers::pi * 5.0 * f * t));
        phase += 2.0 * std::numbers::pi * detuneHz(f, course(double(i - centre) / kSampleRate)) /
                 kSampleRate;
    }
    return sound;
}

TEST(PitchRefinerOC, aNearlyPureToneWhoseLayersDisagreeReadsAtItsPeriod)
{
    // Voices sung together, nearly a sine: at the slow turn of a wobble the fundamental, with
    // nine tenths of the power, reads 22 cents below the faint second and fifth partials for
    // several segments. No one series fits; what the ear and the period follow is every
    // partial, each by power × number². Alone the segment cannot tell that from a fundamental
    // gliding under partials that hold the note (a reed's attack or slur, 40 or 80 cents across
    // a segment): there, the upper partials are the note.
    PitchRefinerOC refiner;
    ASSERT_TRUE(refiner.setupWithNFrames(kSegLength, kHzPerBin));
    constexpr int kSound = 4 * kSegLength;
    constexpr int kCentre = 2 * kSegLength;
    const auto read = [&](const std::vector<double> &sound, double f, bool beside) {
        const double *segment = sound.data() + kCentre - kSegLength / 2;
        if (beside)
            refiner.setSamples(segment, segment - kSegLength / 2, segment + kSegLength);
        else
            refiner.setSamples(segment);
        return centsBetween(refiner.refine(detuneHz(f, 2.0), kFreqMin, kFreqMax), f);
    };
    constexpr double kSecond = 0.21;
    constexpr double kFifth = 0.18;
    // Cents of each partial against f, weighted by power × number².
    const double period = -22.0 / (1.0 + 4.0 * kSecond * kSecond + 25.0 * kFifth * kFifth);
    const double segmentSeconds = kSegLength / kSampleRate;
    for (const double f : {180.0, 214.75, 262.0, 330.0}) {
        SCOPED_TRACE(std::to_string(f) + " Hz");
        const std::vector<double> turn =
            loudFundamental(f, kCentre, kSound, kSecond, kFifth, [](double t) {
                return -22.0 + 11.0 * (1.0 - std::cos(2.0 * std::numbers::pi * 3.0 * t));
            });
        EXPECT_NEAR(read(turn, f, true), period, 2.0);
        EXPECT_NEAR(read(turn, f, false), 0.0, 2.0);
        for (const double glide : {40.0, 80.0}) {
            const std::vector<double> attack =
                loudFundamental(f, kCentre, kSound, kSecond, kFifth,
                                [&](double t) { return -22.0 + glide * t / segmentSeconds; });
            EXPECT_NEAR(read(attack, f, true), 0.0, 1.5) << glide << " cents a segment";
        }
    }
}

TEST(PitchRefinerOC, measuresDetunedTonesToAFifthOfACent)
{
    Analysis analysis;
    ASSERT_TRUE(analysis.ok);
    double worstSearch = 0.0;
    for (const Timbre timbre : allTimbres()) {
        for (const double cents : {-43.0, -17.5, 8.2, 31.0}) {
            // Harmonics ten bins apart or more; closer ones leak into each other by a cent or so.
            for (const double note : {69.0, 75.0, 81.0}) {
                const double f = detuneHz(noteToHz(note), cents);
                Tone shape{.freqHz = f, .timbre = timbre, .seed = 3};
                const std::vector<double> segment = tone(shape, kSegLength);
                const auto [search, refined] = analysis.pitches(segment.data());
                worstSearch = std::max(worstSearch, std::abs(centsBetween(search, f)));
                EXPECT_NEAR(centsBetween(refined, f), 0.0, 0.2)
                    << timbreName(timbre) << " at note " << note << " " << cents << " cents";
            }
        }
    }
    // The comparison means something only where the search itself is coarser.
    EXPECT_GT(worstSearch, 0.2);
}

TEST(PitchRefinerOC, readsAStiffStringAtItsFirstPartial)
{
    // Partial h of a string with inharmonicity B lies at h f1 sqrt((1 + B h²) / (1 + B)); a
    // harmonic fit over them reads several cents sharp of the first partial.
    Analysis analysis;
    ASSERT_TRUE(analysis.ok);
    for (const double stiffness : {1e-4, 5e-4, 2e-3}) {
        for (const double note : {58.3, 66.8, 74.1, 81.6}) {
            const double f1 = noteToHz(note);
            std::vector<double> segment(kSegLength, 0.0);
            for (int h = 1; h <= 30; h++) {
                const double fh = h * f1 * std::sqrt((1.0 + stiffness * h * h) / (1.0 + stiffness));
                if (fh < 0.45 * kSampleRate)
                    mix(segment, sine(fh, 3000.0 / h, kSegLength));
            }
            mix(segment, whiteNoise(3.0, kSegLength, 5));
            const double refined = analysis.pitches(segment.data()).second;
            // Partials under ten bins apart leak into each other by a few tenths of a cent.
            EXPECT_NEAR(centsBetween(refined, f1), 0.0, 0.5)
                << "B " << stiffness << " at note " << note;
        }
    }
}

TEST(PitchRefinerOC, layersThatBeatAreReadNoLowerThanTheirPartials)
{
    // A choir's vowel at a beat's trough: each partial two layers a few cents apart, in
    // antiphase at the segment's centre, so that the bins about each peak point apart; the
    // partials' frequencies over their numbers rise from 159 to 165 Hz, and a stray partial far
    // up lies where a stretch through them would put the fourteenth. Layers are no stiff string:
    // the reading is never an extrapolated first partial below all of them.
    LongSegments refiner(noteToHz(40.0), noteToHz(74.0));
    ASSERT_TRUE(refiner.ok);
    constexpr int kLength = LongSegments::kLength;
    const double partials[][2] = {{159.04, 0.0453}, {321.79, 0.145}, {479.58, 1.0},
                                  {650.39, 0.321},  {824.39, 0.263}, {2929.56, 0.007}};
    for (const double transpose : {0.85, 0.92, 1.0, 1.08, 1.16}) {
        for (const double layerCents : {10.0, 20.0}) {
            for (const double second : {0.8, 0.9}) {
                std::vector<double> segment = silence(kLength);
                for (const auto &[hz, power] : partials) {
                    for (const double sign : {-1.0, 1.0}) {
                        const double f = transpose * detuneHz(hz, sign * layerCents);
                        const double amplitude =
                            3000.0 * std::sqrt(power) * (sign < 0 ? 1.0 : second);
                        const double atCentre = sign < 0 ? 0.0 : std::numbers::pi;
                        for (int i = 0; i < kLength; i++)
                            segment[std::size_t(i)] +=
                                amplitude *
                                std::sin(atCentre + 2.0 * std::numbers::pi * f * (i - kLength / 2) /
                                                        kSampleRate);
                    }
                }
                const double pitch = refiner.alone(segment.data(), transpose * 164.2) / transpose;
                EXPECT_GT(pitch, detuneHz(159.04, -5.0))
                    << "transposed " << transpose << ", layers " << layerCents << " cents apart, "
                    << second;
            }
        }
    }
}

TEST(PitchRefinerOC, aStrongPartialOffTheSeriesDoesNotLeadTheOthersAstray)
{
    // A bowed string's vibrato sweeps each partial through the body's resonances, and within one
    // segment the loudest partial can read tens of cents off the others. Stand-in: the second
    // partial, the loudest, 35 cents sharp of a series of twelve. (Six bins from its neighbours
    // it still pulls them by a cent or so through the window's side lobes.)
    PitchRefinerOC refiner;
    ASSERT_TRUE(refiner.setupWithNFrames(kSegLength, kHzPerBin));
    for (const double note : {60.0, 63.5, 67.0}) {
        const double f = noteToHz(note);
        std::vector<double> amplitudes(12);
        for (std::size_t k = 0; k < amplitudes.size(); k++)
            amplitudes[k] = k == 1 ? 0.0 : 3000.0 / static_cast<double>(k + 1);
        std::vector<double> segment = harmonics(f, amplitudes, kSegLength);
        mix(segment, sine(detuneHz(2.0 * f, 35.0), 6000.0, kSegLength));
        refiner.setSamples(segment.data());
        for (const double startCents : {-3.0, 3.0})
            EXPECT_NEAR(
                centsBetween(refiner.refine(detuneHz(f, startCents), kFreqMin, kFreqMax), f), 0.0,
                2.0)
                << "note " << note << ", starting " << startCents << " cents off";
    }
    // A high viola note whose weak fundamental dips 14 cents on its own while the rest hold: a
    // prediction from the fundamental alone would miss the second harmonic, sixty bins up, and
    // with it every other.
    LongSegments longer(noteToHz(49.0), noteToHz(78.0));
    ASSERT_TRUE(longer.ok);
    for (const double f : {560.0, 644.0, 720.0}) {
        std::vector<double> segment =
            harmonics(f, {0.0, 8000.0, 2500.0, 0.0, 2500.0, 1500.0}, LongSegments::kLength);
        mix(segment, sine(detuneHz(f, -14.0), 2500.0, LongSegments::kLength));
        EXPECT_NEAR(centsBetween(longer.alone(segment.data(), detuneHz(f, -1.0)), f), 0.0, 1.0)
            << f << " Hz";
    }
}

TEST(PitchRefinerOC, aStrongestPartialPulledOffItsHarmonicStaysThatHarmonic)
{
    // Voices that beat can pull a choir's loudest partial tens of cents off its harmonic for a
    // segment, where the search's harmonics then miss it. Stand-in: the third or the fifth
    // harmonic, far the loudest, 30 to 45 cents off, over a weak series. A lone partial in noise
    // at the same place implies a series of noise, and stays what it is.
    PitchRefinerOC refiner;
    ASSERT_TRUE(refiner.setupWithNFrames(kSegLength, kHzPerBin));
    struct Pulled
    {
        int harmonic;
        double cents;
    };
    for (const double note : {55.0, 57.5, 60.0}) {
        const double f = noteToHz(note);
        for (const Pulled pulled : {Pulled{3, 35.0}, Pulled{3, -45.0}, Pulled{5, 30.0}}) {
            const double partial = detuneHz(pulled.harmonic * f, pulled.cents);
            std::vector<double> amplitudes(8);
            for (std::size_t k = 0; k < amplitudes.size(); k++)
                amplitudes[k] =
                    static_cast<int>(k) + 1 == pulled.harmonic ? 0.0 : 1500.0 / (k + 1.0);
            std::vector<double> choir = harmonics(f, amplitudes, kSegLength);
            mix(choir, sine(partial, 8000.0, kSegLength));
            refiner.setSamples(choir.data());
            EXPECT_NEAR(centsBetween(refiner.refine(detuneHz(f, 5.0), kFreqMin, kFreqMax), f), 0.0,
                        50.0)
                << "note " << note << ", harmonic " << pulled.harmonic << " " << pulled.cents
                << " cents off";

            std::vector<double> lone = sine(partial, 8000.0, kSegLength);
            mix(lone, whiteNoise(800.0, kSegLength, 5));
            refiner.setSamples(lone.data());
            EXPECT_NEAR(centsBetween(refiner.refine(detuneHz(f, 5.0), kFreqMin, kFreqMax), partial),
                        0.0, 50.0)
                << "lone partial for note " << note << ", harmonic " << pulled.harmonic;
        }
    }
}

TEST(PitchRefinerOC, findsThePitchFromAStartFortyCentsOff)
{
    // The search misses a lone partial in noise by up to half a semitone now and then; its
    // harmonics are still where the refinement looks.
    PitchRefinerOC refiner;
    ASSERT_TRUE(refiner.setupWithNFrames(kSegLength, kHzPerBin));
    for (const Timbre timbre : {Timbre::sine, Timbre::sawtooth}) {
        for (const double note : {62.0, 71.5, 83.0}) {
            const double f = noteToHz(note);
            std::vector<double> segment = tone(Tone{.freqHz = f, .timbre = timbre}, kSegLength);
            mix(segment, whiteNoise(800.0, kSegLength, 11));
            refiner.setSamples(segment.data());
            for (const double startCents : {-40.0, 40.0})
                EXPECT_NEAR(
                    centsBetween(refiner.refine(detuneHz(f, startCents), kFreqMin, kFreqMax), f),
                    0.0, 0.5)
                    << timbreName(timbre) << " at note " << note << ", starting " << startCents
                    << " cents off";
        }
    }
}

TEST(PitchRefinerOC, keepsTheMeanOfVibrato)
{
    // Ten whole cycles of ±30 cents at 5 Hz: the segments' mean is the centre pitch, as the mean
    // of the true pitch at the segments' centres is.
    const double centre = noteToHz(64.4);
    const double seconds = 2.0;
    const int length = static_cast<int>(seconds * kSampleRate) + kSegLength;
    Tone shape{.freqHz = centre, .vibratoHz = 5.0, .vibratoDepthCents = 30.0, .seed = 9};
    const std::vector<double> sound = tone(shape, length);
    Analysis analysis;
    ASSERT_TRUE(analysis.ok);
    double sumRefined = 0.0;
    double sumTrue = 0.0;
    double worst = 0.0;
    int count = 0;
    for (int start = 0; start + kSegLength <= length && start < seconds * kSampleRate;
         start += kSegLength / 2) {
        const double t = (start + kSegLength / 2.0) / kSampleRate;
        const double truth = 30.0 * std::sin(2.0 * M_PI * 5.0 * t);
        const double refined = centsBetween(analysis.pitches(sound.data() + start).second, centre);
        sumRefined += refined;
        sumTrue += truth;
        worst = std::max(worst, std::abs(refined - truth));
        count++;
    }
    EXPECT_NEAR(sumRefined / count, sumTrue / count, 0.3);
    // Each segment follows the swing, within what its length blurs of it.
    EXPECT_LT(worst, 3.0);
}

// The search and the refinement of one segment as the pitch stream sets them up for a note range
// of an octave either side of a note: segments of four periods of the lowest note, pitches from
// two semitones below it to two above the highest.
struct RangedAnalysis
{
    explicit RangedAnalysis(double note)
        : freqMin(noteToHz(note - 14.0)), freqMax(noteToHz(note + 14.0))
    {
        int logN = 2;
        while ((2 << logN) < 4.0 / noteToHz(note - 12.0) * kSampleRate)
            logN++;
        segLength = 2 << logN;
        (void)fft.setupWithLogN(logN);
        (void)peaks.setupWithN(fft.getN() + 1, fft.getResult(), 0.5, kSampleRate / segLength,
                               freqMin, std::sqrt(2.0));
        ok = refiner.setupWithNFrames(segLength, kSampleRate / segLength);
    }

    // The refined pitch (Hz) of the segment and its goodness.
    std::pair<double, double> refined(const double *segment)
    {
        result.setupWithSamples(segment, fft, &peaks, 2, freqMin, freqMax, 0.9,
                                PeakDataSetOC::kDbLimit);
        refiner.setSamples(segment);
        result.compute();
        const double f = refiner.refine(result.getFreq(), freqMin, freqMax);
        return {f, refiner.getGoodness()};
    }

    double freqMin;
    double freqMax;
    int segLength = 0;
    FFTOC fft;
    PeakDataSetOC peaks;
    PitchResultOC result;
    PitchRefinerOC refiner;
    bool ok = false;
};

// Nearly pure tones the harmonic search reads an octave or more low (its goodness favours
// several peaks over one), as a musician meets them.
std::vector<double> nearlyPureTone(const std::string &kind, double f, int n)
{
    if (kind == "sine")
        return sine(f, 8000.0, n);
    if (kind == "triangle")
        return harmonics(f, {8000.0, 0.0, -8000.0 / 9.0, 0.0, 8000.0 / 25.0, 0.0, -8000.0 / 49.0},
                         n);
    if (kind == "oo") // a strong fundamental, a weak second and a trace of the third
        return harmonics(f, {8000.0, 1600.0, 250.0}, n);
    std::vector<double> x = sine(f, 8000.0, n);
    if (kind == "tuning fork") {
        // A weak second partial dying away within the segment.
        for (int i = 0; i < n; i++)
            x[static_cast<std::size_t>(i)] +=
                400.0 * std::exp(-3.0 * i / n) * std::sin(2.0 * M_PI * 2.0 * f * i / kSampleRate);
    } else { // whistle: breath noise 30 dB down
        mix(x, whiteNoise(8000.0 * std::sqrt(3.0 / 2.0) * 0.0316, n, 21));
    }
    return x;
}

TEST(PitchRefinerOC, readsNearlyPureTonesInTheirOctaveAndBright)
{
    int searchWrong = 0;
    for (const char *kind : {"sine", "triangle", "tuning fork", "whistle", "oo"}) {
        for (const double hz :
             {40.0, 61.7, 97.0, 150.0, 233.3, 352.0, 440.0, 660.0, 1013.0, 1500.0, 2000.0}) {
            SCOPED_TRACE(std::string(kind) + " at " + std::to_string(hz) + " Hz");
            const double note = 69.0 + 12.0 * std::log2(hz / 440.0);
            RangedAnalysis analysis(note);
            ASSERT_TRUE(analysis.ok);
            const std::vector<double> segment = nearlyPureTone(kind, hz, analysis.segLength);
            const auto [refined, goodness] = analysis.refined(segment.data());
            searchWrong += std::abs(centsBetween(analysis.result.getFreq(), hz)) > 50.0 ? 1 : 0;
            EXPECT_NEAR(centsBetween(refined, hz), 0.0, 0.5);
            // Above the default "Quality threshold": drawn at full brightness.
            EXPECT_GT(goodness, 100.0);
        }
    }
    // The search alone misses many of them, or the test would show nothing of the refinement.
    EXPECT_GT(searchWrong, 10);
}

TEST(PitchRefinerOC, goodnessKeepsNoiseBelowTheThresholdAndPitchedNotesAbove)
{
    Analysis analysis;
    ASSERT_TRUE(analysis.ok);
    // Hiss, breath (noise through a low-pass) and a scrape (noise through a band-pass), loud
    // and faint: no pitch, whatever the level.
    for (const double amplitude : {30.0, 3000.0}) {
        for (std::uint32_t seed = 1; seed <= 8; seed++) {
            const std::vector<double> hiss = whiteNoise(amplitude, kSegLength, seed);
            std::vector<double> breath(hiss.size());
            std::vector<double> scrape(hiss.size());
            double low = 0.0;
            double lower = 0.0;
            for (std::size_t i = 0; i < hiss.size(); i++) {
                low += 0.1 * (hiss[i] - low);
                lower += 0.3 * (low - lower);
                breath[i] = low;
                scrape[i] = low - lower;
            }
            const std::vector<double> *const noises[] = {&hiss, &breath, &scrape};
            for (const std::vector<double> *noise : noises) {
                (void)analysis.pitches(noise->data());
                EXPECT_LT(analysis.refiner.getGoodness(), 100.0)
                    << "noise " << amplitude << " seed " << seed;
            }
        }
    }
    // Pitched notes with vibrato and noise 20 dB down are clear.
    for (const Timbre timbre : allTimbres()) {
        for (const double note : {58.0, 66.5, 79.0, 88.0}) {
            Tone shape{.freqHz = noteToHz(note),
                       .timbre = timbre,
                       .vibratoHz = 5.5,
                       .vibratoDepthCents = 25.0,
                       .seed = 4};
            std::vector<double> segment = tone(shape, kSegLength);
            mix(segment, whiteNoise(8000.0 * 0.1 * std::sqrt(3.0 / 2.0), kSegLength, 8));
            const double refined = analysis.pitches(segment.data()).second;
            EXPECT_NEAR(centsBetween(refined, shape.freqHz), 0.0, 30.0);
            EXPECT_GT(analysis.refiner.getGoodness(), 100.0)
                << timbreName(timbre) << " at note " << note;
        }
    }
}

TEST(PitchRefinerOC, refusesBadSizesAndAnswersTheGivenPitchWhenItCannotMeasure)
{
    PitchRefinerOC refiner;
    EXPECT_FALSE(refiner.setupWithNFrames(1000, kHzPerBin));
    EXPECT_FALSE(refiner.setupWithNFrames(4, kHzPerBin));
    EXPECT_FALSE(refiner.setupWithNFrames(kSegLength, 0.0));
    EXPECT_FALSE(refiner.setupWithNFrames(kSegLength, NAN));
    // Not set up: nothing to measure with.
    EXPECT_EQ(refiner.refine(440.0, kFreqMin, kFreqMax), 440.0);
    ASSERT_TRUE(refiner.setupWithNFrames(kSegLength, kHzPerBin));
    const std::vector<double> quiet = silence(kSegLength);
    refiner.setSamples(quiet.data());
    EXPECT_EQ(refiner.refine(440.0, kFreqMin, kFreqMax), 440.0);
    EXPECT_EQ(refiner.getHarmonicsUsed(), 0);
    const std::vector<double> a4 = tone(Tone{.freqHz = 440.0}, kSegLength);
    refiner.setSamples(a4.data());
    EXPECT_EQ(refiner.refine(0.0, kFreqMin, kFreqMax), 0.0);
    EXPECT_EQ(refiner.refine(-5.0, kFreqMin, kFreqMax), -5.0);
    // A pitch the range leaves out is not taken.
    EXPECT_EQ(refiner.refine(441.0, kFreqMin, 400.0), 441.0);
}

TEST(PitchRefinerOC, refinesWithoutAllocating)
{
    PitchRefinerOC refiner;
    ASSERT_TRUE(refiner.setupWithNFrames(kSegLength, kHzPerBin));
    // Tones that take every path: plain refinement, octave moves up and down, a lone sine, noise.
    std::vector<std::vector<double>> segments;
    for (const Timbre timbre : allTimbres())
        segments.push_back(tone(Tone{.freqHz = noteToHz(66.3), .timbre = timbre}, kSegLength));
    segments.push_back(whiteNoise(3000.0, kSegLength, 5));
    const double f = noteToHz(66.3);
    const long before = allocations.load();
    double sum = 0.0;
    for (const auto &segment : segments) {
        refiner.setSamples(segment.data());
        for (const double start : {f, f / 2.0, f * 2.0, f / 3.0})
            sum += refiner.refine(start, kFreqMin, kFreqMax);
    }
    const long during = allocations.load() - before;
    EXPECT_TRUE(std::isfinite(sum));
    EXPECT_EQ(during, 0);
}

} // namespace
} // namespace quorval
