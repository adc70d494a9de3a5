#pragma once

#include <limits>
#include <vector>

namespace quorval {

class FFTOC;
class PeakDataSetOC;
class WavFileOC;

// The pitch (fundamental frequency) and goodness of one segment of sound.
//
// Reads 2n frames (mono mix, raw integer units), weights them with a Hamming window, transforms
// them with the given FFTOC, turns the n + 1 magnitudes into dB relative to a full-scale segment
// with a floor, lets the peak set pick two candidates, and searches each candidate and its
// subharmonics x/2, x/3, ... for the frequency of greatest goodness.
//
// The search near one frequency (refineFreq) is a golden-section search (Kiefer, 1953), ending
// with one step through the last three points that is twice the textbook parabola-vertex offset,
// so that pitches agree with those measured before. Bookkeeping chosen here:
// - Bracketing walks uphill, away from the lower of f and f + h (h = five cents of f), in steps
//   d, d·(1 + φ), ... (d starts at h·(1 + φ)) while each new point is higher and d < φ·f,
//   keeping the last three points. One inner point at φ·d back from the outermost one follows.
// - Of the (up to) four points so found, the best and its two neighbours are kept, the best in
//   the middle (when the climb was stopped by d >= φ·f the outermost point may be the best; it
//   then stays at the edge).
// - Narrowing (narrowBracket): each step multiplies d by φ, probes the golden point (1 − φ of
//   the gap's width from the best point) of the larger of the two gaps beside the best point
//   (the right one when they are equal), so that both gaps keep shrinking whatever the heights
//   of the outer points, and keeps the three points around the better of the best and the
//   probe; a probe only replaces the best when strictly better. It stops as soon as d <= h after
//   a probe, so there is always at least one.
//
// Units: frequencies in Hz, goodness dimensionless (0 when none), dB relative to
// nFrames × 32768. The subharmonic search tries at most kMaxDivisor divisors per candidate, so
// that a lowest pitch near 0 Hz cannot make it endless.
//
// Threading: all scratch belongs to this object, the FFTOC and the PeakDataSetOC it is handed
// (the Hamming window is a table per thread); segments with their own FFTOC and PeakDataSetOC
// may be computed on different threads at once, with the same results as on one thread.
// Ownership: the FFTOC, the PeakDataSetOC and the WavFileOC are not owned; the FFTOC and the
// peak set must outlive compute(). The peak set must have been set up on the FFTOC's result
// array with N = n + 1 values: compute() converts that array to dB in place.
class PitchResultOC
{
public:
    // Golden ratio φ and the first refinement step, 2^(5/1200) − 1 (five cents).
    static constexpr double kPhi = 0.6180339887498949;
    static constexpr double kFirstStep = 0.0028922878693671272;
    // Most subharmonics x/k tried per candidate.
    static constexpr int kMaxDivisor = 4096;

    PitchResultOC() = default;
    PitchResultOC(const PitchResultOC &) = delete;
    PitchResultOC &operator=(const PitchResultOC &) = delete;

    // Reads 2n frames (n = fft.getN()) at byte location byteLoc of wavFile, ring wrap included,
    // and stores the search settings: nHighest candidates (0 .. 2 used), pitches accepted from
    // freqMin (inclusive) to freqMax (exclusive) Hz, goodnessThreshold the factor of the best
    // goodness a candidate must beat to be refined, dbLimit the spectrum's floor in dB. peakData
    // may be null (spectrum only). Returns what the read returns. The object may be set up again
    // for another segment; its buffers are then reused and freq and goodness reset to 0.
    [[nodiscard]] bool setupFromWavFile(WavFileOC &wavFile, int byteLoc, FFTOC &fft,
                                        PeakDataSetOC *peakData, int nHighest, double freqMin,
                                        double freqMax, double goodnessThreshold, double dbLimit);
    // The same with the 2n samples given directly (copied).
    void setupWithSamples(const double *segment, FFTOC &fft, PeakDataSetOC *peakData, int nHighest,
                          double freqMin, double freqMax, double goodnessThreshold, double dbLimit);

    // samples[i] *= 0.54 − 0.46·cos(2π·i / (nFrames − 1)).
    void hammingTransform();
    // Each spectrum value v becomes max(20·log10(v / (nFrames × 32768)), dbLimit), or dbLimit
    // when v is not above 0.
    void convertToDecibelsAndLimit();
    // Window, transform, dB, then (with a peak set) the candidate search into freq and goodness.
    // Non-finite samples give freq = goodness = 0.
    void compute();
    // The frequency of greatest goodness near f (Hz); f itself when f <= 0.
    [[nodiscard]] double refineFreq(double f);

    // Three points of a search in rising x, b the best of them: a < b < c, gb >= ga, gb >= gc.
    struct GoldenBracket
    {
        double a, ga, b, gb, c, gc;
    };
    // The narrowing and final step of the search, on any function g: narrows bracket in place
    // from step d until d <= h (one probe at least) and returns the final step's x.
    template <typename Goodness>
    [[nodiscard]] static double narrowBracket(GoldenBracket &bracket, double d, double h,
                                              Goodness &&g);

    [[nodiscard]] double getFreq() const { return freq; }
    [[nodiscard]] double getGoodness() const { return goodness; }
    // Whether compute() takes the decibels from a polynomial logarithm, within 1e-9 dB of the
    // library's and several times quicker, rather than from the library's log10. For a search
    // whose pitch the refiner measures again: a last-digit difference in a decibel can at most
    // tip a near tie between candidates, which the refiner checks anyway. Off by default, and
    // off the search stays what it has always been, to the last bit.
    void setQuickDecibels(bool on) { quickDecibels = on; }

    // The segment's samples before compute(), which transforms them in place: unweighted after
    // setupFromWavFile(), Hamming-weighted after setupWithSamples(). nFrames values.
    [[nodiscard]] const double *getSamples() const { return samples.data(); }
    // The spectrum in dB after compute(), fftSize values (owned by the FFTOC).
    [[nodiscard]] const double *getFFTResult() const { return fftResult; }
    [[nodiscard]] int getFFTSize() const { return fftSize; }

private:
    void prepare(FFTOC &fft, PeakDataSetOC *peakData, int nHighest, double freqMin, double freqMax,
                 double goodnessThreshold, double dbLimit);
    // The Hamming weights of the present size, made once per thread.
    [[nodiscard]] const double *hammingWindow() const;
    [[nodiscard]] double goodnessAt(double f);
    [[nodiscard]] double refine(double f);

    int nFrames = 0;
    int fftSize = 0;
    int nFreqs = 0;
    std::vector<double> samples; // nFrames samples of the segment, integer units
    std::vector<int> loudBins;   // the bins above the floor, while converting to dB
    bool quickDecibels = false;  // see setQuickDecibels()
    bool windowed = false;       // samples already weighted, by setupWithSamples()
    bool windowedFinite = true;  // and whether they were all finite before
    double *fftResult = nullptr; // the FFTOC's result array, in dB after compute()
    double freq = 0.0;
    double goodness = 0.0;
    FFTOC *fft = nullptr;
    PeakDataSetOC *peakData = nullptr;
    int nHighest = 0;
    double freqMin = 0.0;
    double freqMax = 0.0;
    double goodnessThreshold = 0.0;
    double dbLimit = 0.0;
    // Quotients below floorQuotient take the floor floorDbFor without a logarithm.
    double floorDbFor = std::numeric_limits<double>::quiet_NaN();
    double floorQuotient = 0.0;
    // The last goodness evaluated, and where (NaN: none since the peaks were found).
    double lastGoodnessFreq = std::numeric_limits<double>::quiet_NaN();
    double lastGoodness = 0.0;
};

template <typename Goodness>
double PitchResultOC::narrowBracket(GoldenBracket &bracket, double d, double h, Goodness &&g)
{
    auto &[a, ga, b, gb, c, gc] = bracket;
    // The stop test follows each probe: without a climb d·φ is already h (φ + φ² = 1), and the
    // final step needs the probe.
    do {
        d *= kPhi;
        const bool right = c - b >= b - a;
        const double x = right ? b + (1.0 - kPhi) * (c - b) : b - (1.0 - kPhi) * (b - a);
        const double gx = g(x);
        if (gx > gb) {
            if (right) {
                a = b;
                ga = gb;
            } else {
                c = b;
                gc = gb;
            }
            b = x;
            gb = gx;
        } else if (right) {
            c = x;
            gc = gx;
        } else {
            a = x;
            ga = gx;
        }
    } while (d > h);

    // Twice the textbook parabola-vertex offset: the step the search has always taken, and the
    // pitches measured so far were measured with it.
    const double A = a - b;
    const double B = c - b;
    const double FA = ga - gb;
    const double FC = gc - gb;
    return b - (A * A * FC - FA * B * B) / (FA * B - A * FC);
}

} // namespace quorval
