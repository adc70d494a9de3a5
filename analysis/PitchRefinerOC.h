#pragma once

#include "analysis/FFTOC.h"

#include <vector>

namespace quorval {

// Checks the pitch the harmonic search found for one segment against its octave and twelfth
// above and below, and refines it far below a cent.
//
// Two transforms one sample apart (Brown and Puckette, "A high resolution fundamental frequency
// determination based on phase changes of the Fourier transform", JASA 94, 1993) give every
// bin's frequency from its phase advance, exact for a lone steady partial whatever the window.
// A harmonic of a candidate fundamental counts only where a bin near it has both real power and
// a phase advance that points at the harmonic itself: the skirts of a neighbouring partial point
// at that partial, and side-lobe ripple and noise rarely point anywhere in particular, so they
// cannot pose as harmonics the way a peak over a magnitude spectrum can.
// - Octave safety: when the odd harmonics of the candidate hold almost no such power, or only a
//   faint share over no fundamental at all, the pitch is its octave above (likewise the
//   harmonics that are no multiple of three for the twelfth);
//   when the odd harmonics of the octave below (or the non-multiples of three of the twelfth
//   below) hold a fair share, or the strongest partial, which the candidate's own miss, the
//   pitch is that one. At a note's attack or release, where partials halfway between the
//   note's come and go, the sound half a segment either side decides: the octave above there,
//   with no sign of the candidate's own note, is the pitch.
// - Slurred changes: a segment whose reading a neighbouring note's partials pulled off the
//   search's takes the steady pitch of the one side, half a segment before or after, that holds
//   a clear series while the other does not: the segment's centre lies in that note.
// - Precision: the harmonics first vote on a start (a median, then Tukey's biweight about it), so
//   that one loud partial read tens of cents off (a vibrato sweeping it through a resonance)
//   cannot lead the rest astray. The fundamental is then the mean of each matched harmonic's
//   frequency over its number, leaving out those far off the start, weighted by power × number²
//   (the inverse of each estimate's variance in white noise). A phase advance is the
//   power-weighted mean of the instantaneous frequency over the window, so vibrato shifts a
//   segment's value only by the curvature of its course, which averages out.
// - Stretched partials: a stiff string's (a piano's) partials lie sharp of the harmonics of its
//   first, f_h = h f_1 sqrt(1 + β(h² − 1)), and a tuner and the ear follow the lowest. Where the
//   matched partials show such a stretch beyond their own scatter, the pitch is f_1 from a
//   weighted fit of (f_h / h)² against h² − 1, which is linear in it.
// - Layered partials: voices or layers a few cents apart, each with its own vibrato (a choir, a
//   section), make one partial of several. The bins about its peak then point tenths of a bin
//   apart, and its strongest bin follows whichever layer the beats favour for the moment. No
//   single series describes such a sound: its pitch is the period it repeats at best, the highest
//   peak of its autocorrelation (from the power spectrum, corrected for the window's own) near
//   the estimate, or at the octave or twelfth below where the sound repeats markedly better there.
//   Where a nearly pure tone's loudest partial reads so far off its faint upper ones that the
//   start leaves it out, and holds that reading from half a segment before to half a segment
//   after, its layers disagree rather than one partial being misread: the pitch is the mean of
//   every harmonic, weighted as above, as the period is.
//
// Window: Hann (Hann's main lobe is two bins wide on each side, so harmonics four bins apart, the
// closest the segmentation gives, stay apart) or, where harmonics are far apart, a four-term
// Blackman–Harris (Harris, Proc. IEEE 66, 1978), whose side lobes leak far less into them.
//
// Units: frequencies in Hz; samples in any unit (integer units from the sound file).
// Context: a result depends only on the samples set, never on earlier calls.
// Allocation: all storage is made by setupWithNFrames(); refine() allocates nothing and calls
// no trigonometry beyond an occasional arctangent, and for layered partials a cosine or two a
// step of the period search.
// Threading: one thread at a time per object; objects are independent.
class PitchRefinerOC
{
public:
    // Harmonics examined per candidate at most.
    static constexpr int kMaxHarmonics = 24;

    PitchRefinerOC() = default;
    PitchRefinerOC(const PitchRefinerOC &) = delete;
    PitchRefinerOC &operator=(const PitchRefinerOC &) = delete;

    // nFrames: samples per segment, a power of two from 8 to 2^24; hzPerBin: the sample rate over
    // nFrames, positive and finite. False (and the object unusable) otherwise.
    [[nodiscard]] bool setupWithNFrames(int nFrames, double hzPerBin);

    // The segment's nFrames samples (unweighted), to be refined later. before and after, where
    // the sound has them, are the nFrames / 2 samples just before and just after the segment:
    // where a note starts or ends inside the segment, the note's steady part beside it settles the
    // octave, and at a slurred change, the pitch. All are read in place, not copied, so must stay
    // as they are until refine() returns.
    void setSamples(const double *samples, const double *before = nullptr,
                    const double *after = nullptr);
    // The pitch in Hz of the samples last set, given freq (Hz), the pitch the harmonic search
    // found; only pitches from freqMin (inclusive) to freqMax (exclusive) are taken. Answers
    // freq itself when it is not positive, when no harmonic can be measured, or before set-up.
    [[nodiscard]] double refine(double freq, double freqMin, double freqMax);

    [[nodiscard]] int getNFrames() const { return nFrames; }
    // Harmonics matched for the last answer (0 when it is freq unchanged).
    [[nodiscard]] int getHarmonicsUsed() const { return harmonicsUsed; }
    // How clearly the last answer is a pitch, on the harmonic search's goodness scale (0 up to
    // kMaxGoodness): from the share of the power over its harmonic band that lies in the main
    // lobes of its harmonics, counted only where a bin's phase advance points at the harmonic's
    // own frequency. A steady partial's main lobe points there as one; noise, breath and bow
    // scrape point anywhere, so they score low whatever their level. 0 when the answer is freq
    // unchanged.
    [[nodiscard]] double getGoodness() const { return goodness; }

    // The goodness of a pure tone, halfway up the quality view; a share of kThresholdShare maps
    // to 100, the default "Quality threshold".
    static constexpr double kMaxGoodness = 500.0;
    static constexpr double kThresholdShare = 0.6;

private:
    // What the harmonics of one candidate show.
    struct Measurement
    {
        double freq = 0.0;       // weighted fundamental from the matched harmonics, Hz; 0: none
        double power = 0.0;      // their total power
        double oddShare = 0.0;   // share of the power at odd harmonics
        double otherShare = 0.0; // share at harmonics that are no multiple of three
        int used = 0;
        double powerOf[kMaxHarmonics] = {}; // each harmonic's power (index h - 1)
        double binOf[kMaxHarmonics] = {};   // and where its bin points, in bins
        // The greatest factor k (2 .. min(most, kMaxFactor)) whose multiples among the
        // harmonics hold all but a share below limit of the power, with no other harmonic
        // above lone; 0 when none does.
        [[nodiscard]] int commonFactor(double limit, double lone, int most) const;
        // The greatest power of a harmonic that is no multiple of k.
        [[nodiscard]] double strayMost(int k) const;
        // The fundamental (bins of hzPerBin) that every harmonic of least power or more puts
        // it at, each weighted by power × number² as the period weighs it; 0 when none does.
        [[nodiscard]] double meanOfAll(double least) const;
    };

    // Taps of the windows either side of a bin.
    static constexpr int kTaps = 3;
    // The spectrum of nFrames samples under the cosine-sum window with these coefficients.
    void transform(const double *samples, const double (&window)[kTaps + 1]);
    // In beside, freq measured in the sound half a segment before (side 0) or after (1) this
    // one, transformed under the window for freq; false where the caller gave no samples there.
    [[nodiscard]] bool measureBeside(int side, double freq, Measurement &beside);
    // Whether the sound half a segment before or after this one is the octave above freq, a
    // steady tone with nothing at freq's odd harmonics. Leaves the transform of that sound.
    [[nodiscard]] bool besideIsOctaveAbove(double freq);
    // Whether the sound half a segment before and after this one (where the caller gave it) holds
    // freq's series with its fundamental pointing right at kConsensusPower or more. Leaves the
    // transform of the last side measured.
    [[nodiscard]] bool besideHoldsFundamental(double freq);
    // The steady pitch (Hz) of the one side, half a segment before or after, that holds a clear
    // series near near (Hz) while the other does not, where it lies more than kEdgePull from
    // estimate (Hz); where both do and agree, their mean where estimate lies off both and the
    // segment's lobes are blended; 0 otherwise. Leaves the transform of the sound beside.
    [[nodiscard]] double steadyBeside(double near, double estimate, bool blended);
    // Where m's loudest harmonic holds kLoudestShare of the voting power, was left out of
    // m.freq and holds its reading beside the segment (see kHeldAcross), the pitch (Hz) all
    // of m's harmonics put the fundamental at; 0 otherwise. Leaves the present transform as it
    // found it.
    [[nodiscard]] double loudestHeld(const Measurement &m);
    // x1, powers from u(k) under the window's first taps + 1 coefficients (the rest are 0).
    template <int taps> void applyWindow(int m);
    [[nodiscard]] Measurement measure(double freq) const;
    // The fundamental (in bins) the harmonics near freqBins agree on.
    [[nodiscard]] double consensus(double freqBins) const;
    // The power of the strongest bin within one of p (in bins) that points within tolerance of
    // p, and in bin its frequency (in bins); 0 when there is none.
    [[nodiscard]] double harmonicNear(double p, double tolerance, double &bin) const;
    // The greatest power within a bin of each harmonic of freq that is no multiple of divisor.
    [[nodiscard]] double powerBetween(double freq, int divisor) const;
    // The greatest power within a bin of p (in bins), 1 <= p < nFrames / 2 - 1.
    [[nodiscard]] double powerNear(double p) const;
    // Whether the strongest bin of the transform is one of the measured harmonics.
    [[nodiscard]] bool holdsStrongest(const Measurement &m) const;
    // The first partial (Hz) of a measurement whose partials are stretched as a stiff string's,
    // m.freq where they are not.
    [[nodiscard]] double firstPartial(const Measurement &m) const;
    // The goodness of a measurement (see getGoodness).
    [[nodiscard]] double goodnessOf(const Measurement &m) const;
    // How far apart (in bins) the bins about each harmonic's peak point, weighted by power: a
    // hundredth of a bin or so for a steady partial, tenths where layers of it beat.
    [[nodiscard]] double lobeSpread(const Measurement &m) const;
    // Whether the two halves of the present transform's samples hold about the same power.
    [[nodiscard]] bool holdsItsLevel() const;
    // The pitch (Hz) of a measurement: its first partial, or for layered partials the period the
    // sound repeats at best.
    [[nodiscard]] double pitchOf(const Measurement &m) const;
    // The pitch (Hz) of layered partials measured as m (see the class comment); 0 where the
    // sound repeats at no period near it well.
    [[nodiscard]] double layeredPitch(const Measurement &m, double freqMin, bool mayGoDown) const;
    // The pitch (Hz) within a semitone of freq whose period the present transform's sound
    // repeats at best, and in similarity the autocorrelation there over its value at no lag (1
    // where the sound repeats exactly); 0 where the highest value lies at either end, no peak
    // (similarity is then that value's). Where there is a peak, atFreq (if given) takes the same
    // ratio at freq itself.
    [[nodiscard]] double periodicity(double freq, double &similarity,
                                     double *atFreq = nullptr) const;
    // That autocorrelation at a period of 2π / theta bins, from the powers of bins from to to.
    [[nodiscard]] double autocorrelation(double theta, int from, int to) const;
    // The frequency (in bins) of bin k, 1 <= k < nFrames / 2, from its phase advance.
    // Remembered for the present transform; phaseAdvanceBin computes it.
    [[nodiscard]] double binOf(int k) const;
    [[nodiscard]] double phaseAdvanceBin(int k) const;

    int nFrames = 0;
    double hzPerBin = 0.0;
    const double *segment = nullptr;     // the samples last set
    const double *transformed = nullptr; // the samples of the present transform
    // The caller's half segments beside the segment (nullptr: none), and the sound half a segment
    // before or after, put together from them when asked for.
    const double *before = nullptr;
    const double *after = nullptr;
    std::vector<double> besideSamples;
    std::vector<double> powers; // |x1|² of each bin below nFrames / 2
    std::vector<double> x1Re;   // the windowed transform x1, bins below nFrames / 2
    std::vector<double> x1Im;
    std::vector<double> re;  // the half-length transform, real parts
    std::vector<double> im;  // imaginary parts
    std::vector<double> uRe; // the plain transform u(k), k = -kTaps .. nFrames / 2 + kTaps
    std::vector<double> uIm;
    std::vector<double> twiddleRe; // e^(−2πik/nFrames), k < nFrames / 2
    std::vector<double> twiddleIm;
    double coefficients[kTaps + 1] = {}; // the window of the present transform
    FFTOC fft;                           // the half-length transform of the packed segment
    double strongest = 0.0;              // the greatest power of a bin in the present transform
    int strongestBin = 0;                // and its bin
    // binOf's answers for the present transform: reading[k] holds when readAt[k] is its count.
    mutable std::vector<double> reading;
    mutable std::vector<unsigned> readAt;
    unsigned transformCount = 0;
    int harmonicsUsed = 0;
    double goodness = 0.0;
};

} // namespace quorval
