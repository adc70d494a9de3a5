// Scores the segment pitch against known pitches, with and without refinement, and prints one
// table side by side. The corpus is generated from fixed seeds:
// - harmonic tones (sawtooth, weak fundamental, odd harmonics, sine), steady, with vibrato and
//   with white noise at 30, 20 and 10 dB SNR, on notes C3 to C5, each with its own detuning;
// - the same down to C2 with "Lowest Note" lowered;
// - an ensemble: each note sung by four sawtooth voices spread a few cents about it, each with a
//   vibrato of its own, the truth the mean of their pitches (no single period, as in a choir);
// - a bowed string whose vibrato dips sharply, with a resonance near its third harmonic that
//   rings at its own frequency, loudest in the dips, as the cello render's does; the truth the
//   string's pitch, which all its other partials follow;
// - with --renders, software-instrument renders made with fluidsynth and the General MIDI
//   SoundFont (pitch-bend range set, reverb and chorus off), each note detuned by pitch bend.
//   A SoundFont's samples are not tuned to the cent and many carry vibrato, so a render's true
//   pitch is measured on the audio itself, segment by segment, by a method that shares nothing
//   with the analysis (the peak of a harmonic comb over the segment's Hann-windowed spectrum,
//   found by direct sums, started from a long estimate over the note's steady part). Notes whose
//   first partials stray from one harmonic series (layered samples that beat, vibrato through
//   resonances) are left out and counted; the piano's stretched partials have no single pitch to
//   the cent, so its row is shown but not held to the targets. With --renders the reference is
//   also checked against the generated tones, whose truth is known.
// - real recordings with an annotated pitch (Bach10's chorale parts, where
//   bench/setup-evaluation.sh could fetch them), one group per instrument: each part a file with
//   its annotated notes' range, a segment scored against the annotation at its centre.
// Praat's periodicity pitch stands beside each group; for the renders' notes with no single
// period it is also set against itself with a window one segment long, which shows how far two
// readings of such sound can honestly differ.
// Each "file" is analysed as a user would: default options, with "Lowest Note" and "Highest
// Note" set to the file's notes. --notes N sets the notes per file (default 12: small enough for
// CI; longer sets on demand).
#include "AnnotatedRecording.h"
#include "analysis/FFTOC.h"
#include "analysis/PeakDataSetOC.h"
#include "analysis/PitchRefinerOC.h"
#include "analysis/PitchResultOC.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <numbers>
#include <random>
#include <set>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using namespace quorval;

constexpr double kSampleRate = 44100.0;
constexpr double kTwoPi = 2.0 * std::numbers::pi;

double noteHz(double note)
{
    return 440.0 * std::exp2((note - 69.0) / 12.0);
}

double centsBetween(double f, double reference)
{
    return 1200.0 * std::log2(f / reference);
}

// A render's segment has a reference only where its first partials stray less than this (cents,
// RMS) from the harmonic series of its pitch; a note, only where most of its segments have one.
constexpr double kReferenceSpread = 4.0;

// Uniform in [lo, hi) from the generator's raw output, the same on every platform.
double uniform(std::mt19937 &random, double lo, double hi)
{
    return lo + (hi - lo) * (random() / 4294967296.0);
}

double gaussian(std::mt19937 &random)
{
    const double u = uniform(random, 1e-12, 1.0);
    const double v = uniform(random, 0.0, 1.0);
    return std::sqrt(-2.0 * std::log(u)) * std::cos(kTwoPi * v);
}

// A segment's true pitch, and how far its strong partials stray from that pitch's harmonic
// series (the power-weighted RMS, cents): a measure of how well one pitch describes the sound.
struct SegmentReference
{
    double pitchHz = 0.0;
    double spreadCents = 0.0;
};

// A segment wholly inside a note: its first sample and its truth.
struct PlacedSegment
{
    std::size_t start = 0;
    SegmentReference truth;
};

// One voice of an ensemble: its offset from the note and its own vibrato.
struct Voice
{
    double offsetCents = 0.0;
    double vibratoCents = 0.0;
    double vibratoHz = 0.0;
    double vibratoPhase = 0.0;

    // Cents off the note, the given seconds into it.
    double centsAt(double seconds) const
    {
        return offsetCents + vibratoCents * std::sin(kTwoPi * vibratoHz * seconds + vibratoPhase);
    }
};

struct Note
{
    double startSeconds = 0.0;
    double endSeconds = 0.0;
    double pitchHz = 0.0;      // the centre pitch
    double vibratoCents = 0.0; // depth (peak)
    double vibratoPhase = 0.0; // radians at the start
    bool dipping = false;      // a bowed string's vibrato: a sharp dip once a cycle (see dipAt)
    std::vector<Voice> voices; // of a generated note: one, or an ensemble's, each off by its own
    std::vector<PlacedSegment> placed;
    std::vector<double> segments; // filled while scoring: signed error of each, cents
    std::vector<double> goodness; // and the goodness of each
};

struct Sound
{
    std::string group;
    std::string kind;            // of generated tones: steady, vibrato, noise, low
    std::vector<double> samples; // integer units
    std::vector<Note> notes;
    double lowestNote = 0.0;
    double highestNote = 0.0;
    int droppedNotes = 0;           // renders' notes left without a reference
    std::vector<Note> unreferenced; // those notes, each segment's truth the note's long pitch
    std::vector<double> strayCents; // how far their segments' first partials stray from one series
    bool nominal = false;           // a row of such notes
    int droppedSegments = 0;        // and segments of the notes kept
    bool heldToTargets = true;      // false: no single pitch to the cent (stretched partials)
    bool measuredTruth = false;     // the truth is the offline reference, not the generator's
};

constexpr double kVibratoHz = 5.5;

// The vibrato's phase at t (radians).
double vibratoAngle(const Note &note, double t)
{
    return kTwoPi * kVibratoHz * (t - note.startSeconds) + note.vibratoPhase;
}

// How deep into a dipping vibrato's dip the note is at t: 0 for most of the cycle, rising sharply
// to 1 at its deepest, ((1 − cos θ) / 2)³, whose mean over a cycle is 5/16.
double dipAt(const Note &note, double t)
{
    return std::pow(0.5 - 0.5 * std::cos(vibratoAngle(note, t)), 3.0);
}

double pitchAt(const Note &note, double t)
{
    // A dipping vibrato of depth d lies d (5/16 − q) from the note: its mean is the note.
    const double cents = note.vibratoCents * (note.dipping ? 5.0 / 16.0 - dipAt(note, t)
                                                           : std::sin(vibratoAngle(note, t)));
    return note.pitchHz * std::exp2(cents / 1200.0);
}

// How the pitch stream cuts a file at default options with the note range set to the file's
// notes: segments of at least four periods of the lowest note, half a segment apart.
struct Segmentation
{
    int segLength = 1;
    int segSpacing = 1;
    double freqMin = 0.0;
    double freqMax = 0.0;
};

Segmentation segmentationOf(double lowestNote, double highestNote)
{
    Segmentation s;
    const double wanted = 4.0 / noteHz(lowestNote) * kSampleRate;
    while (s.segLength < wanted)
        s.segLength *= 2;
    s.segSpacing = s.segLength / 2;
    s.freqMin = noteHz(lowestNote - 2.0);
    s.freqMax = noteHz(highestNote + 2.0);
    return s;
}

// Lists in each note the segments wholly inside it (20 ms clear of its ends), with the pitch
// truthHz(note, first sample) gives each.
template <typename Truth>
void placeSegments(std::vector<Note> &notes, std::size_t sampleCount, const Segmentation &s,
                   const Truth &truthHz)
{
    const auto length = static_cast<std::size_t>(s.segLength);
    for (std::size_t start = 0; start + length <= sampleCount;
         start += static_cast<std::size_t>(s.segSpacing)) {
        const double from = static_cast<double>(start) / kSampleRate;
        const double to = from + s.segLength / kSampleRate;
        for (Note &note : notes)
            if (from >= note.startSeconds + 0.02 && to <= note.endSeconds - 0.02)
                note.placed.push_back({start, truthHz(note, start)});
    }
}

enum class Timbre
{
    sawtooth,
    weakFundamental,
    oddHarmonics,
    sine,
    stiffString, // partials 1/h stretched as a piano string's, the pitch the first partial's
    // A cello-like string in a dipping vibrato, with a resonance kRingCents above its third
    // harmonic that rings at its own frequency, faint but for the dips, where it grows to
    // kRingLevel of the fundamental (as in the cello render, which at a dip reads its third
    // partial 40 cents above the rest).
    ringingString
};

constexpr double kRingCents = 12.0;
constexpr double kRingLevel = 0.6;
constexpr double kRingFloor = 0.03;

// A stiff string's inharmonicity, about a mid-range piano string's: its fourth partial lies 6.5
// cents sharp of four times the first.
constexpr double kStiffness = 5e-4;
constexpr const char *kStiffGroup = "stiff string stiff *";

// Partial h's frequency over the pitch.
double partialRatio(Timbre timbre, int h)
{
    if (timbre != Timbre::stiffString)
        return h;
    return h * std::sqrt((1.0 + kStiffness * h * h) / (1.0 + kStiffness));
}

double partial(Timbre timbre, int h)
{
    switch (timbre) {
    case Timbre::sawtooth:
    case Timbre::stiffString:
        return 1.0 / h;
    case Timbre::weakFundamental:
        return h == 1 ? 0.03 : 1.0 / h;
    case Timbre::oddHarmonics:
        return h % 2 == 1 ? 1.0 / h : 0.0;
    case Timbre::sine:
        return h == 1 ? 1.0 : 0.0;
    case Timbre::ringingString: {
        // Strongest at the first; the third faint, the resonance beside it taking its place.
        constexpr std::array<double, 11> kCello = {1.0, 0.25, 0.05, 0.14, 0.18, 0.19,
                                                   0.1, 0.08, 0.12, 0.2,  0.08};
        return h <= 11 ? kCello[static_cast<std::size_t>(h - 1)] : 0.0;
    }
    }
    return 0.0;
}

// Tones of the timbre, one note at a time. voices > 1: each note sung by that many voices of
// equal strength, spread about the note (their offsets sum to nothing), each with a vibrato of
// its own; the truth is then the mean of their pitches, in cents, at the segment's centre.
Sound synthesize(const std::string &timbreName, const std::string &kind, Timbre timbre,
                 double lowNote, double highNote, int noteCount, double vibratoCents, double snrDb,
                 std::uint32_t seed, int voices = 1)
{
    std::mt19937 random(seed);
    Sound sound;
    sound.group = timbreName + " " + kind;
    sound.kind = kind;
    const double noteSeconds = 0.5;
    const auto total = static_cast<std::size_t>(noteCount * noteSeconds * kSampleRate);
    std::vector<double> clean(total, 0.0);
    double low = 1e9;
    double high = -1e9;
    for (int n = 0; n < noteCount; n++) {
        Note note;
        const double midi = std::floor(uniform(random, lowNote, highNote + 1.0));
        low = std::min(low, midi);
        high = std::max(high, midi);
        note.pitchHz = noteHz(midi + uniform(random, -0.45, 0.45));
        note.startSeconds = n * noteSeconds;
        note.endSeconds = (n + 1) * noteSeconds;
        note.vibratoCents = vibratoCents;
        note.vibratoPhase = uniform(random, 0.0, kTwoPi);
        note.dipping = timbre == Timbre::ringingString;
        std::vector<Voice> &ensemble = note.voices;
        ensemble.resize(static_cast<std::size_t>(voices));
        if (voices > 1) {
            // Offsets in pairs either side of the note, up to a sixth of a semitone.
            for (std::size_t v = 0; v + 1 < ensemble.size(); v += 2) {
                const double spread = uniform(random, 2.0, 16.0);
                ensemble[v].offsetCents = -spread;
                ensemble[v + 1].offsetCents = spread;
            }
            for (Voice &voice : ensemble) {
                voice.vibratoCents = uniform(random, 10.0, 35.0);
                voice.vibratoHz = uniform(random, 4.5, 6.5);
                voice.vibratoPhase = uniform(random, 0.0, kTwoPi);
            }
        }
        const auto first = static_cast<std::size_t>(note.startSeconds * kSampleRate);
        const auto last = static_cast<std::size_t>(note.endSeconds * kSampleRate);
        for (const Voice &voice : ensemble) {
            std::vector<double> phases(64);
            for (double &p : phases)
                p = uniform(random, 0.0, kTwoPi);
            double phase = 0.0;
            for (std::size_t i = first; i < last && i < total; i++) {
                const double t = static_cast<double>(i) / kSampleRate;
                // 10 ms ramps at both ends, so that note changes do not click.
                const double ramp =
                    std::min({1.0, (t - note.startSeconds) / 0.01, (note.endSeconds - t) / 0.01});
                double v = 0.0;
                const double f =
                    pitchAt(note, t) * std::exp2(voice.centsAt(t - note.startSeconds) / 1200.0);
                for (int h = 1; h <= 64 && partialRatio(timbre, h) * f < 0.45 * kSampleRate; h++)
                    v += partial(timbre, h) * std::sin(partialRatio(timbre, h) * phase +
                                                       phases[static_cast<std::size_t>(h - 1)]);
                if (timbre == Timbre::ringingString)
                    v += (kRingFloor + kRingLevel * std::sqrt(dipAt(note, t))) *
                         std::sin(kTwoPi * 3.0 * note.pitchHz * std::exp2(kRingCents / 1200.0) *
                                  (t - note.startSeconds));
                clean[i] += ramp * v;
                phase += kTwoPi * f / kSampleRate;
            }
        }
        sound.notes.push_back(note);
    }
    double power = 0.0;
    for (double v : clean)
        power += v * v;
    const double rms = std::sqrt(power / static_cast<double>(total));
    const double scale = 6000.0 / rms;
    const double noise = std::isfinite(snrDb) ? std::pow(10.0, -snrDb / 20.0) * 6000.0 : 0.0;
    sound.samples.resize(total);
    for (std::size_t i = 0; i < total; i++)
        sound.samples[i] =
            std::round(std::clamp(clean[i] * scale + noise * gaussian(random), -32768.0, 32767.0));
    sound.lowestNote = low;
    sound.highestNote = high;
    // The truth at a segment is the pitch at its centre, an ensemble's the mean of its voices'.
    const Segmentation segmentation = segmentationOf(low, high);
    placeSegments(sound.notes, total, segmentation,
                  [&segmentation](const Note &note, std::size_t start) {
                      const double t =
                          (static_cast<double>(start) + 0.5 * segmentation.segLength) / kSampleRate;
                      double cents = 0.0;
                      for (const Voice &voice : note.voices)
                          cents += voice.centsAt(t - note.startSeconds);
                      cents /= static_cast<double>(note.voices.size());
                      return SegmentReference{pitchAt(note, t) * std::exp2(cents / 1200.0), 0.0};
                  });
    return sound;
}

// --- Renders ---------------------------------------------------------------------------------

void putVariable(std::string &out, std::uint32_t value)
{
    std::uint8_t bytes[5];
    int n = 0;
    bytes[n++] = value & 0x7f;
    while ((value >>= 7) != 0)
        bytes[n++] = static_cast<std::uint8_t>((value & 0x7f) | 0x80);
    while (n > 0)
        out.push_back(static_cast<char>(bytes[--n]));
}

// A one-track MIDI file: one note at a time on channel 0, each detuned by pitch bend.
std::string midiFile(int program, const std::vector<int> &keys, const std::vector<double> &cents,
                     double noteSeconds, double gapSeconds, int bendRange)
{
    const int division = 480; // ticks per quarter at 120 bpm: 960 ticks a second
    std::string track;
    const auto event = [&track](std::uint32_t delta, std::initializer_list<int> bytes) {
        putVariable(track, delta);
        for (int b : bytes)
            track.push_back(static_cast<char>(b));
    };
    event(0, {0xc0, program});
    // Pitch-bend range by registered parameter 0; reverb and chorus sends off.
    event(0, {0xb0, 101, 0});
    event(0, {0xb0, 100, 0});
    event(0, {0xb0, 6, bendRange});
    event(0, {0xb0, 38, 0});
    event(0, {0xb0, 91, 0});
    event(0, {0xb0, 93, 0});
    const auto ticks = [](double seconds) { return static_cast<std::uint32_t>(seconds * 960.0); };
    std::uint32_t pending = ticks(0.2);
    for (std::size_t n = 0; n < keys.size(); n++) {
        const int bend = std::clamp(
            static_cast<int>(std::lround(8192.0 + cents[n] / (100.0 * bendRange) * 8192.0)), 0,
            16383);
        event(pending, {0xe0, bend & 0x7f, bend >> 7});
        event(0, {0x90, keys[n], 100});
        event(ticks(noteSeconds), {0x80, keys[n], 0});
        pending = ticks(gapSeconds);
    }
    event(ticks(0.5), {0xff, 0x2f, 0x00});
    std::string file = "MThd";
    const auto be32 = [](std::string &s, std::uint32_t v) {
        for (int shift = 24; shift >= 0; shift -= 8)
            s.push_back(static_cast<char>((v >> shift) & 0xff));
    };
    be32(file, 6);
    file += std::string{
        0, 0, 0, 1, static_cast<char>(division >> 8), static_cast<char>(division & 0xff)};
    file += "MTrk";
    be32(file, static_cast<std::uint32_t>(track.size()));
    file += track;
    return file;
}

// --- An offline reference -----------------------------------------------------------------
// It shares no code with the analysis. A long window over each note's steady part finds roughly
// where the note lies (the SoundFont's samples are not tuned to the cent); each segment's pitch
// is then the peak of a harmonic comb over its own samples near there, and its first partials,
// each on its own peak, say how well one pitch describes the segment at all.

std::vector<double> hannWindowed(const double *x, std::size_t n)
{
    std::vector<double> windowed(n);
    for (std::size_t i = 0; i < n; i++)
        windowed[i] = x[i] * (0.5 - 0.5 * std::cos(kTwoPi * (static_cast<double>(i) + 0.5) /
                                                   static_cast<double>(n)));
    return windowed;
}

// The power of the windowed samples' spectrum at f Hz, by direct sum.
double powerAt(const std::vector<double> &windowed, double f)
{
    const double step = kTwoPi * f / kSampleRate;
    double re = 0.0;
    double im = 0.0;
    // A rotation per sample instead of a sine and cosine each.
    double c = 1.0;
    double s = 0.0;
    const double dc = std::cos(step);
    const double ds = std::sin(step);
    for (double x : windowed) {
        re += x * c;
        im -= x * s;
        const double nc = c * dc - s * ds;
        s = s * dc + c * ds;
        c = nc;
    }
    return re * re + im * im;
}

// Where fn is greatest within [lo, hi]: a scan step apart finds the highest point among the
// side lobes, a golden-section search pins it down to tolerance.
template <typename Function>
double maximise(const Function &fn, double lo, double hi, double step, double tolerance)
{
    constexpr double phi = 0.6180339887498949;
    double best = lo;
    double bestValue = -1.0;
    for (double g = lo; g <= hi; g += step) {
        const double value = fn(g);
        if (value > bestValue) {
            bestValue = value;
            best = g;
        }
    }
    double a = best - step;
    double b = best + step;
    double c = b - phi * (b - a);
    double d = a + phi * (b - a);
    double gc = fn(c);
    double gd = fn(d);
    while (b - a > tolerance) {
        if (gc > gd) {
            b = d;
            d = c;
            gd = gc;
            c = b - phi * (b - a);
            gc = fn(c);
        } else {
            a = c;
            c = d;
            gc = gd;
            d = a + phi * (b - a);
            gd = fn(d);
        }
    }
    return 0.5 * (a + b);
}

// The pitch of a long steady stretch, where the segments' search starts: each of the first
// harmonics on its own spectral peak, combined weighted by power × number² (as a least-squares
// fit of a harmonic series weighs them). Vibrato smears the peaks, so this is good to a few
// cents, not to the fraction the segments need.
double notePitch(const std::vector<double> &x, double guessHz)
{
    const std::vector<double> windowed = hannWindowed(x.data(), x.size());
    const double resolution = kSampleRate / static_cast<double>(x.size());
    const auto power = [&windowed](double f) { return powerAt(windowed, f); };
    const auto peakNear = [&](double f, double range) {
        return maximise(power, f - range, f + range, 0.25 * resolution, 1e-5);
    };
    const double f1 = peakNear(guessHz, std::max(2.0 * resolution, guessHz * 0.03));
    double weightSum = 0.0;
    double weighted = 0.0;
    double estimate = f1;
    for (int h = 1; h <= 12 && h * estimate < 8000.0; h++) {
        const double f = h == 1 ? f1 : peakNear(h * estimate, 2.0 * resolution);
        const double weight = power(f) * h * h;
        weightSum += weight;
        weighted += weight * f / h;
        estimate = weighted / weightSum;
    }
    return estimate;
}

// Partials the reference reads on their own peaks to see whether they are stretched.
constexpr int kStretchPartials = 8;
// A stretch is taken only at this many standard errors, and from this inharmonicity up (a piano's
// strings lie from 1e-4 to 1e-2).
constexpr double kStretchSignificance = 8.0;
constexpr double kMinStretch = 5e-5;

// The weighted least-squares line through (h² − 1, (f_h / h)²) of partials 1 .. count (weights
// power × h²): the first partial's square and the stretch β. False, both unchanged, unless the
// line rises at kStretchSignificance standard errors or more.
bool stretchFit(const std::array<double, kStretchPartials + 1> &partials,
                const std::array<double, kStretchPartials + 1> &powers, int count,
                double &firstSquared, double &stretch)
{
    // Two passes, the weighted means and then the sums about them.
    const auto x = [](int h) { return h * h - 1.0; };
    const auto y = [&partials](int h) { return (partials[h] / h) * (partials[h] / h); };
    double w = 0.0;
    double meanX = 0.0;
    double meanY = 0.0;
    for (int h = 1; h <= count; h++) {
        w += powers[h] * h * h;
        meanX += powers[h] * h * h * x(h);
        meanY += powers[h] * h * h * y(h);
    }
    meanX /= w;
    meanY /= w;
    double sxx = 0.0;
    double sxy = 0.0;
    double syy = 0.0;
    for (int h = 1; h <= count; h++) {
        const double dx = x(h) - meanX;
        const double dy = y(h) - meanY;
        sxx += powers[h] * h * h * dx * dx;
        sxy += powers[h] * h * h * dx * dy;
        syy += powers[h] * h * h * dy * dy;
    }
    if (count < 3 || !(sxx > 0.0))
        return false;
    const double slope = sxy / sxx;
    const double intercept = meanY - slope * meanX;
    const double error = std::sqrt(std::max(0.0, syy - sxy * slope) / (count - 2) / sxx);
    if (!(intercept > 0.0) || !(slope > kStretchSignificance * error))
        return false;
    firstSquared = intercept;
    stretch = slope / intercept;
    return true;
}

// The first partial where the partials are stretched, as a stiff string's, (f_h / h)² =
// f_1² (1 + β(h² − 1)); f (the comb's pitch) where they are not. Each partial is read on its own
// peak where the stretch of those below puts it.
double firstPartial(const std::vector<double> &windowed, double f, double resolution)
{
    const auto power = [&windowed](double g) { return powerAt(windowed, g); };
    std::array<double, kStretchPartials + 1> partials{};
    std::array<double, kStretchPartials + 1> powers{};
    double firstSquared = f * f;
    double stretch = 0.0;
    int found = 0;
    for (int h = 1; h <= kStretchPartials; h++) {
        const double predicted = h * std::sqrt(firstSquared * (1.0 + stretch * (h * h - 1.0)));
        if (predicted >= 0.45 * kSampleRate)
            break;
        partials[h] = maximise(power, predicted - 0.5 * resolution, predicted + 0.5 * resolution,
                               0.125 * resolution, 1e-6 * f);
        powers[h] = power(partials[h]);
        found = h;
        if (h >= 3)
            stretchFit(partials, powers, h, firstSquared, stretch);
    }
    // Stretched only where the partials show it well beyond their scatter.
    if (found >= 4 && stretchFit(partials, powers, found, firstSquared, stretch) &&
        stretch >= kMinStretch)
        return std::sqrt(firstSquared);
    return f;
}

// The pitch of one segment: the fundamental whose harmonics hold the most power in its
// Hann-windowed spectrum (for resolved harmonics, the least-squares fit of a harmonic series).
// The comb starts with a few harmonics over a wide range around guessHz and narrows as it takes
// more, so that it settles on the fundamental and not on a side lobe of the upper harmonics.
SegmentReference segmentPitch(const double *x, std::size_t n, double guessHz)
{
    const std::vector<double> windowed = hannWindowed(x, n);
    const double resolution = kSampleRate / static_cast<double>(n);
    const auto comb = [&windowed](int harmonics) {
        return [&windowed, harmonics](double f) {
            double sum = 0.0;
            for (int h = 1; h <= harmonics && h * f < 0.45 * kSampleRate; h++)
                sum += powerAt(windowed, h * f);
            return sum;
        };
    };
    const double range = guessHz * (std::exp2(60.0 / 1200.0) - 1.0);
    double f = maximise(comb(4), guessHz - range, guessHz + range, resolution / 16.0, 1e-4);
    int previous = 4;
    for (int harmonics : {8, 16, 24}) {
        const double halfWidth = 0.5 * resolution / previous;
        f = maximise(comb(harmonics), f - halfWidth, f + halfWidth, 0.25 * resolution / harmonics,
                     1e-6 * f);
        previous = harmonics;
    }
    // Each of the first partials on its own peak: how far they stray from one harmonic series.
    const auto power = [&windowed](double g) { return powerAt(windowed, g); };
    double squares = 0.0;
    double powerSum = 0.0;
    for (int h = 1; h <= 4 && h * f < 0.45 * kSampleRate; h++) {
        const double partial = maximise(power, h * f - 0.5 * resolution, h * f + 0.5 * resolution,
                                        0.125 * resolution, 1e-6 * f);
        const double p = power(partial);
        const double cents = centsBetween(partial / h, f);
        squares += p * cents * cents;
        powerSum += p;
    }
    return {firstPartial(windowed, f, resolution), std::sqrt(squares / powerSum)};
}

bool renderInstrument(const std::string &name, int program, int lowKey, int highKey, int noteCount,
                      std::uint32_t seed, Sound &sound)
{
    const std::string soundFont = "/usr/share/sounds/sf2/FluidR3_GM.sf2";
    if (!std::filesystem::exists(soundFont))
        return false;
    std::mt19937 random(seed);
    std::vector<int> keys;
    std::vector<double> cents;
    for (int n = 0; n < noteCount; n++) {
        keys.push_back(static_cast<int>(std::floor(uniform(random, lowKey, highKey + 1.0))));
        cents.push_back(uniform(random, -40.0, 40.0));
    }
    const double noteSeconds = 0.8;
    const double gapSeconds = 0.25;
    const auto dir =
        std::filesystem::temp_directory_path() / ("quorval-eval-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
    const auto mid = dir / (name + ".mid");
    const auto raw = dir / (name + ".raw");
    {
        std::ofstream out(mid, std::ios::binary);
        out << midiFile(program, keys, cents, noteSeconds, gapSeconds, 2);
    }
    const std::string command = "fluidsynth -ni -q -R 0 -C 0 -g 0.6 -r 44100 -T raw -O s16 -E "
                                "little -F '" +
                                raw.string() + "' '" + soundFont + "' '" + mid.string() +
                                "' > /dev/null 2>&1";
    const bool rendered = std::system(command.c_str()) == 0 && std::filesystem::exists(raw);
    std::vector<std::int16_t> pcm;
    if (rendered) {
        std::ifstream in(raw, std::ios::binary);
        in.seekg(0, std::ios::end);
        pcm.resize(static_cast<std::size_t>(in.tellg()) / 2);
        in.seekg(0);
        in.read(reinterpret_cast<char *>(pcm.data()), static_cast<std::streamsize>(2 * pcm.size()));
    }
    std::filesystem::remove_all(dir);
    if (pcm.size() < 4)
        return false;
    sound.group = "render " + name;
    sound.measuredTruth = true;
    sound.samples.resize(pcm.size() / 2);
    for (std::size_t i = 0; i < sound.samples.size(); i++)
        sound.samples[i] = std::round(0.5 * (pcm[2 * i] + pcm[2 * i + 1]));
    sound.lowestNote = *std::min_element(keys.begin(), keys.end());
    sound.highestNote = *std::max_element(keys.begin(), keys.end());
    for (int n = 0; n < noteCount; n++) {
        Note note;
        note.startSeconds = 0.2 + n * (noteSeconds + gapSeconds) + 0.12;
        note.endSeconds = 0.2 + n * (noteSeconds + gapSeconds) + noteSeconds;
        const auto first = static_cast<std::size_t>(note.startSeconds * kSampleRate);
        const auto last =
            std::min(sound.samples.size(), static_cast<std::size_t>(note.endSeconds * kSampleRate));
        if (last <= first + 4096)
            continue;
        const std::vector<double> steady(sound.samples.begin() + static_cast<std::ptrdiff_t>(first),
                                         sound.samples.begin() + static_cast<std::ptrdiff_t>(last));
        const auto k = static_cast<std::size_t>(n);
        note.pitchHz = notePitch(steady, noteHz(keys[k] + cents[k] / 100.0));
        sound.notes.push_back(note);
    }
    const Segmentation segmentation = segmentationOf(sound.lowestNote, sound.highestNote);
    placeSegments(sound.notes, sound.samples.size(), segmentation,
                  [&sound, &segmentation](const Note &note, std::size_t start) {
                      return segmentPitch(sound.samples.data() + start,
                                          static_cast<std::size_t>(segmentation.segLength),
                                          note.pitchHz);
                  });
    // The segments without a reference are left out, and the notes left with fewer than half;
    // those notes are kept aside with the note's long-window pitch as a nominal truth, so that
    // what each analysis reads there can still be set beside Praat.
    std::erase_if(sound.notes, [&sound](Note &note) {
        Note nominal = note;
        for (PlacedSegment &segment : nominal.placed)
            segment.truth = {note.pitchHz, 0.0};
        const std::size_t before = note.placed.size();
        std::vector<double> stray;
        for (const PlacedSegment &segment : note.placed)
            stray.push_back(segment.truth.spreadCents);
        std::erase_if(note.placed, [](const PlacedSegment &segment) {
            return segment.truth.spreadCents > kReferenceSpread;
        });
        const std::size_t kept = note.placed.size();
        const bool dropped = 2 * kept < before || kept == 0;
        if (dropped) {
            sound.droppedNotes++;
            sound.strayCents.insert(sound.strayCents.end(), stray.begin(), stray.end());
            sound.unreferenced.push_back(std::move(nominal));
        } else
            sound.droppedSegments += static_cast<int>(before - kept);
        return dropped;
    });
    return true;
}

// --- Analysis and scoring --------------------------------------------------------------------

struct Scores
{
    std::map<std::string, std::vector<Note>> byGroup;
};

// The analysis of one file's segments as the pitch stream sets it up at default options with the
// file's note range.
struct SegmentAnalysis
{
    explicit SegmentAnalysis(const Segmentation &segmentation) : s(segmentation)
    {
        int logN = 0;
        while ((1 << logN) < s.segLength / 2)
            logN++;
        (void)fft.setupWithLogN(logN);
        (void)peaks.setupWithN(s.segLength / 2 + 1, fft.getResult(), 0.5, kSampleRate / s.segLength,
                               s.freqMin, std::sqrt(2.0));
        (void)refiner.setupWithNFrames(s.segLength, kSampleRate / s.segLength);
    }

    // The segment's pitch (Hz, 0 for none) and goodness; refined, the refiner's pitch and, where
    // it measured one, its goodness. before and after: the half segments beside it, where the
    // sound has them.
    std::pair<double, double> pitch(const double *samples, bool refined,
                                    const double *before = nullptr, const double *after = nullptr)
    {
        result.setupWithSamples(samples, fft, &peaks, 2, s.freqMin, s.freqMax, 0.9,
                                PeakDataSetOC::kDbLimit);
        // As the pitch stream does: quick decibels where the refiner measures again.
        result.setQuickDecibels(refined);
        result.compute();
        double f = result.getFreq();
        double goodness = result.getGoodness();
        if (refined && f > 0.0) {
            refiner.setSamples(samples, before, after);
            f = refiner.refine(f, s.freqMin, s.freqMax);
            if (refiner.getHarmonicsUsed() > 0)
                goodness = refiner.getGoodness();
        }
        return {f, goodness};
    }

    Segmentation s;
    FFTOC fft;
    PeakDataSetOC peaks;
    PitchResultOC result;
    PitchRefinerOC refiner;
};

// Segment pitches of one sound, the second run with refinement.
void analyse(const Sound &sound, bool refined, Scores &scores)
{
    SegmentAnalysis analysis(segmentationOf(sound.lowestNote, sound.highestNote));
    const auto length = static_cast<std::size_t>(analysis.s.segLength);
    std::vector<Note> notes = sound.notes;
    for (Note &note : notes)
        for (const PlacedSegment &segment : note.placed) {
            const std::size_t half = length / 2;
            const double *at = sound.samples.data() + segment.start;
            const auto [f, goodness] = analysis.pitch(
                at, refined, segment.start >= half ? at - half : nullptr,
                segment.start + length + half <= sound.samples.size() ? at + length : nullptr);
            note.segments.push_back(f > 0.0 ? centsBetween(f, segment.truth.pitchHz) : NAN);
            note.goodness.push_back(goodness);
        }
    auto &group = scores.byGroup[sound.group];
    group.insert(group.end(), notes.begin(), notes.end());
}

// --- Periodicity pitch from another program --------------------------------------------------
// Praat's To Pitch (ac) (Boersma, "Accurate short-term analysis of the fundamental frequency and
// the harmonics-to-noise ratio of a sampled sound", IFA Proceedings 17, 1993), run as a separate
// process on the same samples written to a temporary WAV file: time step the segment spacing,
// floor and ceiling the file's pitch range, its pitch read at each segment's centre, where one
// of its frames lies (see praatPadding).

bool praatFound()
{
    return std::system("praat --version > /dev/null 2>&1") == 0;
}

void putLittle(std::ofstream &out, std::uint32_t value, int bytes)
{
    for (int i = 0; i < bytes; i++)
        out.put(static_cast<char>((value >> (8 * i)) & 0xff));
}

bool writeWav(const std::filesystem::path &path, const std::vector<double> &samples)
{
    std::ofstream out(path, std::ios::binary);
    const auto dataBytes = static_cast<std::uint32_t>(2 * samples.size());
    out << "RIFF";
    putLittle(out, 36 + dataBytes, 4);
    out << "WAVEfmt ";
    putLittle(out, 16, 4);
    putLittle(out, 1, 2); // PCM
    putLittle(out, 1, 2); // mono
    putLittle(out, static_cast<std::uint32_t>(kSampleRate), 4);
    putLittle(out, static_cast<std::uint32_t>(2 * kSampleRate), 4);
    putLittle(out, 2, 2);
    putLittle(out, 16, 2);
    out << "data";
    putLittle(out, dataBytes, 4);
    for (double v : samples)
        putLittle(out,
                  static_cast<std::uint16_t>(
                      static_cast<std::int16_t>(std::lround(std::clamp(v, -32768.0, 32767.0)))),
                  2);
    return static_cast<bool>(out);
}

constexpr const char *kPraatScript = R"(form Pitch at times
    sentence wav
    sentence times
    sentence out
    positive step
    positive floor
    positive ceiling
endform
sound = Read from file: wav$
pitch = To Pitch (ac): step, floor, 15, "no", 0.03, 0.45, 0.01, 0.35, 0.14, ceiling
strings = Read Strings from raw text file: times$
n = Get number of strings
selectObject: pitch
first = Get time from frame number: 1
writeFileLine: out$, fixed$(first, 9)
for i to n
    selectObject: strings
    line$ = Get string: i
    t = number(line$)
    selectObject: pitch
    f = Get value at time: t, "Hertz", "linear"
    appendFileLine: out$, fixed$(f, 6)
endfor
)";

// Praat centres its frames in the sound: as many as fit its window (three periods of the floor)
// a time step apart, the first at half the sound's length less half their span. Off the segment
// centres they would be read between two frames, each some way from the segment, a blend no
// segment of ours is. The silence (samples) to add before and after the sound that puts a frame
// within half a sample of every segment centre: silence after moves the frames by half a sample
// a sample, silence before moves the segments by a whole one.
struct PraatPadding
{
    int before = 0;
    int after = 0;
};

PraatPadding praatPadding(std::size_t samples, const Segmentation &s, double floorHz)
{
    const double window = 3.0 / floorHz;
    const double step = s.segSpacing / kSampleRate;
    PraatPadding best;
    double nearest = INFINITY;
    for (int before = 0; before < s.segSpacing && nearest > 0.25; before++)
        for (int after = 0; after < s.segSpacing && nearest > 0.25; after++) {
            const double length = static_cast<double>(samples) + before + after;
            const double fits = (length / kSampleRate - window) / step;
            // Where rounding could put one frame more or less, the grid is not certain.
            if (fits < 0.0 || std::abs(fits - std::round(fits)) < 1e-6)
                continue;
            const double frames = std::floor(fits) + 1.0;
            const double first = 0.5 * length - 0.5 * (frames - 1.0) * s.segSpacing; // samples
            const double off = std::remainder(first - before - 0.5 * s.segLength, s.segSpacing);
            if (std::abs(off) < nearest) {
                nearest = std::abs(off);
                best = {before, after};
            }
        }
    return best;
}

// Praat's pitch (Hz, NaN where it finds none) at each time (seconds) of the sound; empty when
// Praat fails. Its pitch floor sets its window, three periods of it: floorHz, where positive,
// stands for the file's.
std::vector<double> praatPitches(const Sound &sound, const std::vector<double> &times,
                                 double floorHz)
{
    const Segmentation s = segmentationOf(sound.lowestNote, sound.highestNote);
    const auto dir =
        std::filesystem::temp_directory_path() / ("quorval-praat-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
    const auto wav = dir / "sound.wav";
    const auto timesFile = dir / "times.txt";
    const auto out = dir / "pitch.txt";
    const auto script = dir / "pitch.praat";
    const double pitchFloor = floorHz > 0.0 ? floorHz : s.freqMin;
    const PraatPadding padding = praatPadding(sound.samples.size(), s, pitchFloor);
    std::vector<double> padded(static_cast<std::size_t>(padding.before), 0.0);
    padded.insert(padded.end(), sound.samples.begin(), sound.samples.end());
    padded.resize(padded.size() + static_cast<std::size_t>(padding.after), 0.0);
    const double shift = padding.before / kSampleRate;
    std::vector<double> pitches;
    {
        std::ofstream(script) << kPraatScript;
        std::ofstream list(timesFile);
        for (double t : times)
            list << std::to_string(t + shift) << '\n';
    }
    if (writeWav(wav, padded)) {
        // To the last digit, as praatPadding took them: a rounded step would let the frames
        // drift off the segments.
        const auto exact = [](double value) {
            char text[32];
            std::snprintf(text, sizeof text, "%.17g", value);
            return std::string(text);
        };
        const std::string command = "praat --run '" + script.string() + "' '" + wav.string() +
                                    "' '" + timesFile.string() + "' '" + out.string() + "' " +
                                    exact(s.segSpacing / kSampleRate) + " " + exact(pitchFloor) +
                                    " " + exact(s.freqMax) + " > /dev/null 2>&1";
        const bool ran = std::system(command.c_str()) == 0;
        std::ifstream in(out);
        std::string line;
        if (ran && std::getline(in, line)) {
            const double off = std::remainder(std::strtod(line.c_str(), nullptr) * kSampleRate -
                                                  padding.before - 0.5 * s.segLength,
                                              s.segSpacing);
            if (!(std::abs(off) <= 1.0))
                std::fprintf(stderr,
                             "%s: Praat's frames lie %.1f samples off the segment centres, "
                             "so its pitch there is read between two of them\n",
                             sound.group.c_str(), off);
            while (std::getline(in, line)) {
                char *end = nullptr;
                const double f = std::strtod(line.c_str(), &end);
                pitches.push_back(end != line.c_str() && f > 0.0 ? f : NAN);
            }
        }
    }
    std::filesystem::remove_all(dir);
    if (pitches.size() != times.size())
        pitches.clear();
    return pitches;
}

// The segments of one sound as Praat reads them at their centres; false when Praat fails.
bool analyseWithPraat(const Sound &sound, Scores &scores, double floorHz = 0.0)
{
    const Segmentation s = segmentationOf(sound.lowestNote, sound.highestNote);
    std::vector<double> times;
    for (const Note &note : sound.notes)
        for (const PlacedSegment &segment : note.placed)
            times.push_back((static_cast<double>(segment.start) + 0.5 * s.segLength) / kSampleRate);
    const std::vector<double> pitches = praatPitches(sound, times, floorHz);
    if (pitches.empty() && !times.empty())
        return false;
    std::vector<Note> notes = sound.notes;
    std::size_t i = 0;
    for (Note &note : notes)
        for (const PlacedSegment &segment : note.placed) {
            const double f = pitches[i++];
            note.segments.push_back(f > 0.0 ? centsBetween(f, segment.truth.pitchHz) : NAN);
        }
    auto &group = scores.byGroup[sound.group];
    group.insert(group.end(), notes.begin(), notes.end());
    return true;
}

struct Row
{
    int segments = 0;
    double rawPitchAccuracy = 0.0; // share within 50 cents
    double octaveErrors = 0.0;     // share an octave or twelfth off
    double median = 0.0;           // |cents| of the segments within 50 cents
    double p95 = 0.0;
    double noteP95 = 0.0; // |mean cents| per note
    double noteWithin5 = 0.0;
    double bright = 0.0; // share of segments at or above the default "Quality threshold" (%)
};

// The default "Quality threshold": segments with less goodness are drawn dim.
constexpr double kQualityThreshold = 100.0;

double percentile(std::vector<double> values, double q)
{
    if (values.empty())
        return NAN;
    std::sort(values.begin(), values.end());
    const auto at = static_cast<std::size_t>(std::ceil(q * static_cast<double>(values.size())));
    return values[std::min(values.size() - 1, at == 0 ? 0 : at - 1)];
}

bool octaveOff(double cents)
{
    for (double off : {1200.0, 2400.0, 1901.955, 3101.955})
        if (std::abs(std::abs(cents) - off) < 50.0)
            return true;
    return false;
}

// The mean error of a note's segments within 50 cents, cents.
double meanWithin50(const Note &note)
{
    double sum = 0.0;
    int count = 0;
    for (double c : note.segments)
        if (std::abs(c) < 50.0) {
            sum += c;
            count++;
        }
    return count > 0 ? sum / count : NAN;
}

Row score(const std::vector<Note> &notes)
{
    Row row;
    std::vector<double> good;
    std::vector<double> noteMeans;
    int accurate = 0;
    int octaves = 0;
    int bright = 0;
    for (const Note &note : notes) {
        bright += static_cast<int>(std::count_if(note.goodness.begin(), note.goodness.end(),
                                                 [](double g) { return g >= kQualityThreshold; }));
        for (double c : note.segments) {
            row.segments++;
            if (std::abs(c) < 50.0) {
                accurate++;
                good.push_back(std::abs(c));
            } else if (octaveOff(c)) {
                octaves++;
            }
        }
        if (const double mean = meanWithin50(note); std::isfinite(mean))
            noteMeans.push_back(std::abs(mean));
    }
    if (row.segments == 0)
        return row;
    row.rawPitchAccuracy = 100.0 * accurate / row.segments;
    row.bright = 100.0 * bright / row.segments;
    row.octaveErrors = 100.0 * octaves / row.segments;
    row.median = percentile(good, 0.5);
    row.p95 = percentile(good, 0.95);
    row.noteP95 = percentile(noteMeans, 0.95);
    row.noteWithin5 =
        noteMeans.empty()
            ? NAN
            : 100.0 *
                  static_cast<double>(std::count_if(noteMeans.begin(), noteMeans.end(),
                                                    [](double m) { return m <= 5.0; })) /
                  static_cast<double>(noteMeans.size());
    return row;
}

// One part of a real recording, read with its annotation: the segments whose centre has an
// annotated pitch, grouped by annotated note, against that pitch; "Lowest Note" and "Highest
// Note" a semitone beyond the part's notes. nullopt (said why) when it cannot be read.
std::optional<Sound> readRealPart(const AnnotatedPart &part)
{
    std::ifstream in(part.pitchPath);
    const auto frames = readAnnotatedPitch(in);
    auto samples = readSamples(part.wavPath, kSampleRate);
    if (!frames || frames->empty() || !samples) {
        std::fprintf(stderr, "%s: cannot be read, or no %g Hz WAV file at %s\n",
                     part.pitchPath.c_str(), kSampleRate, part.wavPath.c_str());
        return std::nullopt;
    }
    Sound sound;
    sound.group = "real Bach10 " + part.instrument;
    sound.samples = std::move(*samples);
    sound.heldToTargets = false;
    std::vector<std::vector<double>> noteMidi;
    for (const AnnotatedFrame &frame : *frames) {
        const auto note = static_cast<std::size_t>(frame.note);
        noteMidi.resize(std::max(noteMidi.size(), note + 1));
        noteMidi[note].push_back(frame.midi);
    }
    sound.notes.resize(noteMidi.size());
    sound.lowestNote = 127.0;
    sound.highestNote = 0.0;
    for (std::size_t i = 0; i < noteMidi.size(); i++) {
        if (noteMidi[i].empty())
            continue;
        // A note's pitches but for a few stray frames at its ends; an annotated note may also
        // run on into the next.
        sound.notes[i].pitchHz = noteHz(percentile(noteMidi[i], 0.5));
        sound.lowestNote =
            std::min(sound.lowestNote, std::round(percentile(noteMidi[i], 0.2)) - 1.0);
        sound.highestNote =
            std::max(sound.highestNote, std::round(percentile(noteMidi[i], 0.8)) + 1.0);
    }
    const Segmentation s = segmentationOf(sound.lowestNote, sound.highestNote);
    const auto length = static_cast<std::size_t>(s.segLength);
    for (std::size_t start = 0; start + length <= sound.samples.size();
         start += static_cast<std::size_t>(s.segSpacing))
        if (const auto truth = annotatedPitchAt(
                *frames, (static_cast<double>(start) + 0.5 * s.segLength) / kSampleRate))
            sound.notes[static_cast<std::size_t>(truth->note)].placed.push_back(
                {start, {noteHz(truth->midi), 0.0}});
    std::erase_if(sound.notes, [](const Note &note) { return note.placed.empty(); });
    return sound;
}

// How close the offline reference comes to the generator's truth on the generated tones, by
// kind of tone: the accuracy the render figures can claim.
void printReferenceCheck(const std::vector<Sound> &sounds)
{
    std::map<std::string, std::vector<double>> errors;
    for (const Sound &sound : sounds) {
        if (sound.measuredTruth)
            continue;
        const Segmentation s = segmentationOf(sound.lowestNote, sound.highestNote);
        for (const Note &note : sound.notes)
            for (const PlacedSegment &segment : note.placed) {
                const SegmentReference reference =
                    segmentPitch(sound.samples.data() + segment.start,
                                 static_cast<std::size_t>(s.segLength), note.pitchHz);
                errors[sound.kind].push_back(
                    std::abs(centsBetween(reference.pitchHz, segment.truth.pitchHz)));
            }
    }
    std::printf("\nThe offline reference against the generated tones' truth, |cents|:\n");
    for (const auto &[kind, values] : errors)
        std::printf("  %-12s median %.3f  p95 %.3f  max %.3f\n", kind.c_str(),
                    percentile(values, 0.5), percentile(values, 0.95), percentile(values, 1.0));
}

// p95 over the notes of |mean refined − mean Praat| (cents): how closely the refined pitch
// follows the periodicity pitch, note by note.
double agreementP95(const std::vector<Note> &refinedNotes, const std::vector<Note> &praatNotes)
{
    std::vector<double> gaps;
    for (std::size_t i = 0; i < refinedNotes.size() && i < praatNotes.size(); i++) {
        const double gap = meanWithin50(refinedNotes[i]) - meanWithin50(praatNotes[i]);
        if (std::isfinite(gap))
            gaps.push_back(std::abs(gap));
    }
    return percentile(gaps, 0.95);
}

// The median over the segments both read within 50 cents of the truth of |a − b| (cents): how
// closely two readings follow each other segment by segment, where a note's mean can hang on a
// frame or two that either drops.
double segmentAgreementMedian(const std::vector<Note> &a, const std::vector<Note> &b)
{
    std::vector<double> gaps;
    for (std::size_t i = 0; i < a.size() && i < b.size(); i++)
        for (std::size_t k = 0; k < a[i].segments.size() && k < b[i].segments.size(); k++) {
            const double x = a[i].segments[k];
            const double y = b[i].segments[k];
            if (std::abs(x) < 50.0 && std::abs(y) < 50.0)
                gaps.push_back(std::abs(x - y));
        }
    return percentile(gaps, 0.5);
}

// Where each reads a tone whose partials are stretched and whose truth is its first partial:
// the signed per-note mean error (cents) of each analysis, as median and range over the notes.
void printStretchCheck(const std::string &group, const Scores &specified, const Scores &refined,
                       const Scores *praat)
{
    const auto line = [&group](const char *name, const Scores &scores) {
        const auto found = scores.byGroup.find(group);
        if (found == scores.byGroup.end())
            return;
        std::vector<double> means;
        for (const Note &note : found->second)
            if (const double mean = meanWithin50(note); std::isfinite(mean))
                means.push_back(mean);
        if (means.empty())
            return;
        std::printf("  %-10s median %+7.2f  from %+7.2f to %+7.2f  (%zu notes)\n", name,
                    percentile(means, 0.5), percentile(means, 0.0), percentile(means, 1.0),
                    means.size());
    };
    std::printf("\nStretched partials (%s), per-note mean cents against the first partial:\n",
                group.c_str());
    line("specified", specified);
    line("refined", refined);
    if (praat != nullptr)
        line("Praat", *praat);
}

// Where the refined pitch and Praat part by more than the targets' cent on generated tones,
// whose truth is known: each one's note p95 against that truth says which of them is off.
void printWhichIsOff(const std::vector<Sound> &sounds, const Scores &refined, const Scores &praat)
{
    std::printf("\nGenerated rows where the refined pitch and Praat differ by more than 1 cent "
                "(\"vs Praat\"): note p95 against the known truth, and which is further off:\n");
    std::set<std::string> shown;
    for (const Sound &sound : sounds) {
        if (sound.measuredTruth || sound.nominal || !shown.insert(sound.group).second)
            continue;
        const auto ours = refined.byGroup.find(sound.group);
        const auto theirs = praat.byGroup.find(sound.group);
        if (ours == refined.byGroup.end() || theirs == praat.byGroup.end())
            continue;
        const double gap = agreementP95(ours->second, theirs->second);
        if (!(gap > 1.0))
            continue;
        const double a = score(ours->second).noteP95;
        const double b = score(theirs->second).noteP95;
        std::printf("  %-28s vs Praat %6.3f   refined %6.3f   Praat %6.3f   further off: %s\n",
                    sound.group.c_str(), gap, a, b, a < b ? "Praat" : "refined");
    }
}

// One group's figures: specified | refined, then Praat's where it ran and the refined pitch's
// agreement with it.
void printRow(const std::string &name, const std::vector<Note> &a, const std::vector<Note> &b,
              const std::vector<Note> *praat)
{
    const Row x = score(a);
    const Row y = score(b);
    std::printf("%-28s %5d | %6.2f %6.2f | %5.2f %5.2f | %6.3f %6.3f | %6.2f %6.2f | %6.3f %6.3f "
                "| %5.1f %5.1f | %5.1f %5.1f",
                name.c_str(), x.segments, x.rawPitchAccuracy, y.rawPitchAccuracy, x.octaveErrors,
                y.octaveErrors, x.median, y.median, x.p95, y.p95, x.noteP95, y.noteP95,
                x.noteWithin5, y.noteWithin5, x.bright, y.bright);
    if (praat != nullptr) {
        const Row z = score(*praat);
        std::printf(" || %6.2f %5.2f %6.3f %6.3f | %6.3f", z.rawPitchAccuracy, z.octaveErrors,
                    z.p95, z.noteP95, agreementP95(b, *praat));
    }
    std::printf("\n");
}

// Sounds without a pitch, cut as a file with the default note range (55 to 91) is: the share of
// segments each analysis keeps below the default "Quality threshold", so drawn dim.
void printNoiseGoodness()
{
    const Segmentation s = segmentationOf(55.0, 91.0);
    SegmentAnalysis analysis(s);
    const std::size_t total = static_cast<std::size_t>(20 * s.segLength);
    std::mt19937 random(99);
    std::printf("\nSegments without a pitch below the \"Quality threshold\" (%%), specified | "
                "refined:\n");
    for (const char *kind : {"hiss", "breath", "bow scrape", "room tone"}) {
        for (const double level : {30.0, 3000.0}) {
            // White noise; breath through a low-pass; a scrape through a band-pass; room tone,
            // faint low rumble with hiss.
            std::vector<double> x(total);
            double low = 0.0;
            double lower = 0.0;
            for (double &v : x) {
                const double white = level * gaussian(random);
                low += 0.1 * (white - low);
                lower += 0.3 * (low - lower);
                v = std::strcmp(kind, "hiss") == 0         ? white
                    : std::strcmp(kind, "breath") == 0     ? 3.0 * low
                    : std::strcmp(kind, "bow scrape") == 0 ? 3.0 * (low - lower)
                                                           : 0.1 * white + 3.0 * lower;
                v = std::round(v);
            }
            int below[2] = {0, 0};
            int count = 0;
            for (std::size_t start = 0; start + static_cast<std::size_t>(s.segLength) <= total;
                 start += static_cast<std::size_t>(s.segSpacing)) {
                for (int refined = 0; refined < 2; refined++) {
                    const auto [f, goodness] = analysis.pitch(x.data() + start, refined == 1);
                    below[refined] += f > 0.0 && goodness >= kQualityThreshold ? 0 : 1;
                }
                count++;
            }
            std::printf("  %-12s level %6.0f  %6.1f %6.1f\n", kind, level, 100.0 * below[0] / count,
                        100.0 * below[1] / count);
        }
    }
}

} // namespace

int main(int argc, char **argv)
{
    int noteCount = 12;
    bool renders = false;
    bool eachNote = false; // each note's mean error under its group's row
    for (int i = 1; i < argc; i++) {
        if (std::strcmp(argv[i], "--notes") == 0 && i + 1 < argc)
            noteCount = std::max(1, std::atoi(argv[++i]));
        else if (std::strcmp(argv[i], "--renders") == 0)
            renders = true;
        else if (std::strcmp(argv[i], "--each-note") == 0)
            eachNote = true;
        else {
            std::fprintf(stderr, "usage: %s [--notes N] [--renders] [--each-note]\n", argv[0]);
            return 2;
        }
    }
    std::vector<Sound> sounds;
    const struct
    {
        const char *name;
        Timbre timbre;
    } timbres[] = {{"sawtooth", Timbre::sawtooth},
                   {"weak fundamental", Timbre::weakFundamental},
                   {"odd harmonics", Timbre::oddHarmonics},
                   {"sine", Timbre::sine}};
    std::uint32_t seed = 1;
    for (const auto &t : timbres) {
        const std::string name = t.name;
        sounds.push_back(
            synthesize(name, "steady", t.timbre, 48, 72, noteCount, 0.0, INFINITY, seed++));
        sounds.push_back(
            synthesize(name, "vibrato", t.timbre, 48, 72, noteCount, 30.0, INFINITY, seed++));
        for (double snr : {30.0, 20.0, 10.0})
            sounds.push_back(synthesize(name, "noise " + std::to_string(int(snr)) + " dB", t.timbre,
                                        48, 72, noteCount, 0.0, snr, seed++));
        sounds.push_back(
            synthesize(name, "low C2-C3", t.timbre, 36, 48, noteCount, 0.0, INFINITY, seed++));
    }
    // Voices that beat, each with its own vibrato, with a truth to the cent: what each analysis
    // (and Praat) reads where there is no single period.
    {
        Sound ensemble = synthesize("ensemble", "four voices", Timbre::sawtooth, 48, 72, noteCount,
                                    0.0, INFINITY, 2000, 4);
        ensemble.heldToTargets = false;
        sounds.push_back(std::move(ensemble));
    }
    // Where partials are stretched, the pitch a tuner and the ear follow is the lowest partials':
    // known here, so the row shows which pitch each analysis (and Praat) reads on a piano.
    {
        Sound stiff = synthesize("stiff string", "stiff", Timbre::stiffString, 36, 72, noteCount,
                                 0.0, INFINITY, 1000);
        stiff.heldToTargets = false;
        stiff.group = kStiffGroup;
        sounds.push_back(std::move(stiff));
    }
    // One partial that does not follow the vibrato: the string's pitch is what the rest follow,
    // so the row shows how each analysis (and Praat) weighs such a partial.
    sounds.push_back(synthesize("bowed string", "resonance", Timbre::ringingString, 48, 60,
                                noteCount, 42.0, INFINITY, 3000));
    if (renders) {
        const struct
        {
            const char *name;
            int program;
            int low;
            int high;
            bool harmonic; // a piano's strings stretch its partials
        } instruments[] = {{"violin", 40, 55, 84, true},  {"viola", 41, 48, 76, true},
                           {"cello", 42, 36, 64, true},   {"flute", 73, 60, 90, true},
                           {"trumpet", 56, 55, 82, true}, {"choir", 52, 48, 72, true},
                           {"piano", 0, 36, 84, false},   {"voice", 53, 55, 79, true},
                           {"oboe", 68, 58, 91, true},    {"clarinet", 71, 50, 89, true}};
        for (const auto &instrument : instruments) {
            Sound sound;
            if (renderInstrument(instrument.name, instrument.program, instrument.low,
                                 instrument.high, noteCount, seed++, sound)) {
                sound.heldToTargets = instrument.harmonic;
                if (!sound.heldToTargets)
                    sound.group += " *";
                // The notes without a reference, on their own row, not held to the targets.
                if (!sound.unreferenced.empty()) {
                    Sound nominal;
                    nominal.group = "render " + std::string(instrument.name) + ", nominal";
                    nominal.samples = sound.samples;
                    nominal.notes = std::move(sound.unreferenced);
                    nominal.lowestNote = sound.lowestNote;
                    nominal.highestNote = sound.highestNote;
                    nominal.heldToTargets = false;
                    nominal.measuredTruth = true;
                    nominal.nominal = true;
                    sounds.push_back(std::move(nominal));
                }
                sounds.push_back(std::move(sound));
            } else
                std::fprintf(stderr, "no render of %s (fluidsynth and fluid-soundfont-gm?)\n",
                             instrument.name);
        }
    }

    Scores specified;
    Scores refined;
    Scores praat;
    const bool praatInstalled = praatFound();
    bool withPraat = praatInstalled;
    std::map<std::string, bool> heldToTargets;
    const auto analyseEach = [&](const Sound &sound) {
        analyse(sound, false, specified);
        analyse(sound, true, refined);
        if (withPraat && !analyseWithPraat(sound, praat)) {
            std::fprintf(stderr, "Praat failed on %s: its column is left out\n",
                         sound.group.c_str());
            withPraat = false;
        }
        heldToTargets[sound.group] = sound.heldToTargets;
    };
    for (const Sound &sound : sounds)
        analyseEach(sound);
    // The real recordings one at a time: together they would hold half a gigabyte.
    const char *cacheHome = std::getenv("XDG_CACHE_HOME");
    const char *home = std::getenv("HOME");
    const std::string partList = (cacheHome != nullptr && *cacheHome != '\0'
                                      ? std::string(cacheHome)
                                      : std::string(home != nullptr ? home : "") + "/.cache") +
                                 "/quorval/bach10/parts.txt";
    const std::vector<AnnotatedPart> parts = readPartList(partList);
    for (const AnnotatedPart &part : parts)
        if (const std::optional<Sound> sound = readRealPart(part))
            analyseEach(*sound);
    std::printf("Each pair: specified | refined. RPA: within 50 cents (%%); oct: octave or twelfth "
                "off (%%);\nmedian, p95: |cents| of segments within 50 cents; note p95, note<=5: "
                "|mean cents| per note;\nbright: segments with goodness at or above the default "
                "\"Quality threshold\" (%%).\n");
    if (withPraat)
        std::printf("After ||: Praat's To Pitch (ac) on the same segments (RPA, oct, p95, note "
                    "p95), and\nvs Praat: p95 over the notes of |refined mean - Praat's mean|, "
                    "cents.\n");
    else if (!praatInstalled)
        std::printf("Praat not found (apt-get install praat): its columns are left out.\n");
    std::printf("%-28s %5s | %13s | %11s | %13s | %13s | %13s | %11s | %11s", "group", "segs",
                "RPA", "oct", "median", "p95", "note p95", "note<=5", "bright");
    if (withPraat)
        std::printf(" || %6s %5s %6s %6s | %6s", "RPA", "oct", "p95", "note", "vs Praat");
    std::printf("\n");
    if (parts.empty())
        std::printf("No Bach10 recordings in %s (bash bench/setup-evaluation.sh fetches them): "
                    "the real recordings are left out.\n",
                    partList.c_str());
    // Specified, refined and Praat's notes of the groups held to the targets, and of the real
    // recordings, whose truth is a person's reading of a tracker's.
    std::array<std::vector<Note>, 3> targets;
    std::array<std::vector<Note>, 3> real;
    for (const auto &[group, notes] : specified.byGroup) {
        const auto &other = refined.byGroup[group];
        const auto &third = praat.byGroup[group];
        if (score(notes).segments == 0)
            continue; // every note left out: see below
        printRow(group, notes, other, withPraat ? &third : nullptr);
        if (eachNote)
            for (std::size_t i = 0; i < notes.size(); i++)
                std::printf("    %9.2f Hz %6.2f %6.2f %6.2f\n", notes[i].pitchHz,
                            meanWithin50(notes[i]), meanWithin50(other[i]),
                            withPraat ? meanWithin50(third[i]) : NAN);
        const bool isReal = group.starts_with("real ");
        if (heldToTargets[group] || isReal) {
            auto &into = isReal ? real : targets;
            into[0].insert(into[0].end(), notes.begin(), notes.end());
            into[1].insert(into[1].end(), other.begin(), other.end());
            into[2].insert(into[2].end(), third.begin(), third.end());
        }
    }
    printRow("all (targets)", targets[0], targets[1], withPraat ? &targets[2] : nullptr);
    if (!real[0].empty())
        printRow("all real", real[0], real[1], withPraat ? &real[2] : nullptr);
    printStretchCheck(kStiffGroup, specified, refined, withPraat ? &praat : nullptr);
    printNoiseGoodness();
    std::printf(
        "\n* Partials stretched: the pitch depends on which partials one weighs, so the row "
        "is shown but not held to the targets;\n  the stiff string's truth is its first "
        "partial. Rows \"nominal\": notes with no single pitch (see below), against\n  the "
        "note's long-window pitch, not held to the targets: \"vs Praat\" says what each reads "
        "there.\n  Rows \"real\": against the annotation, a tracker's pitch corrected by hand, "
        "so good to a few cents; not held to the targets.\n  Row \"ensemble\": four voices "
        "a few cents apart, each with its own vibrato, against the mean of their pitches;\n  not "
        "held to the targets.\n  Row \"bowed string resonance\": a vibrato dipping sharply, "
        "a partial beside the third harmonic ringing at its\n  own frequency, loudest in the "
        "dips, as in the cello render's worst nominal note; against the string's pitch.\n");
    if (renders) {
        std::printf("Left out where the first partials stray more than %.0f cents RMS from one "
                    "harmonic series (layers beating, vibrato through resonances):\n",
                    kReferenceSpread);
        for (const Sound &sound : sounds) {
            if (!sound.measuredTruth || sound.nominal)
                continue;
            int kept = 0;
            for (const Note &note : sound.notes)
                kept += static_cast<int>(note.placed.size());
            std::printf("  %-16s %3d of %3d notes, %4d of %4d segments of the rest",
                        sound.group.c_str(), sound.droppedNotes,
                        sound.droppedNotes + static_cast<int>(sound.notes.size()),
                        sound.droppedSegments, sound.droppedSegments + kept);
            // How far from one period the notes left out are: with no single period there is
            // no pitch to the cent for any analysis to agree on.
            if (!sound.strayCents.empty())
                std::printf("; theirs stray median %.1f, p95 %.1f cents RMS",
                            percentile(sound.strayCents, 0.5), percentile(sound.strayCents, 0.95));
            std::printf("\n");
        }
        printReferenceCheck(sounds);
    }
    if (withPraat)
        printWhichIsOff(sounds, refined, praat);
    if (withPraat && renders) {
        // Where there is no single period, what a tracker reads depends on how long a stretch
        // it weighs: Praat itself, with a window one segment long, against its own reading.
        std::printf(
            "\nPraat with its window one segment long, not three periods of the floor: "
            "against Praat as above, and against the refined pitch (as \"vs Praat\");\n"
            "then segment by segment, the median |difference| of Praat with that window and "
            "of the refined pitch from Praat as above:\n");
        Scores longer;
        for (const Sound &sound : sounds) {
            if (!sound.nominal)
                continue;
            const Segmentation s = segmentationOf(sound.lowestNote, sound.highestNote);
            if (!analyseWithPraat(sound, longer, 3.0 * kSampleRate / s.segLength))
                continue;
            const auto &theirs = praat.byGroup[sound.group];
            const auto &longWindow = longer.byGroup[sound.group];
            const auto &ours = refined.byGroup[sound.group];
            std::printf("  %-28s %6.3f %6.3f | %6.3f %6.3f\n", sound.group.c_str(),
                        agreementP95(longWindow, theirs), agreementP95(ours, longWindow),
                        segmentAgreementMedian(longWindow, theirs),
                        segmentAgreementMedian(ours, theirs));
        }
    }
    return 0;
}
