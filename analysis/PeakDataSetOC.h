#pragma once

#include "analysis/WideVectors.h"

#include <cstdint>
#include <string>
#include <vector>

namespace quorval {

// The spectral peaks of one segment and the harmonic "goodness" of a candidate fundamental.
//
// Reads a dB spectrum in place (the caller refills the same array before each segment), picks
// its peaks with a hysteresis threshold that grows until the peaks are spread about as widely as
// the lowest expected fundamental, refines each peak by a parabola through three bins, keeps the
// two highest peaks as pitch candidates, and scores any fundamental by how well the peaks sit on
// its harmonics, each peak weighted by a Lorentz curve around the nearest harmonic.
//
// Units: spectrum values and heights in dB (after shiftUp(): dB above kDbLimit), frequencies in
// Hz, bin indices as doubles. Hysteresis thresholds in dB.
//
// Threading: all scratch belongs to the object, so different objects may be used on different
// threads at once; one object is used by one thread at a time.
// Ownership: the spectrum array is not owned and must outlive the object's use of it.
class PeakDataSetOC
{
public:
    // The floor subtracted from peak heights: 20·log10(2^-17) dB.
    static constexpr double kDbLimit = -102.35019852575361;
    // Threshold steps tried at most by peaksForDensity(): an increment so close to 1 that this
    // many steps do not reach the wanted spacing would otherwise run for hours.
    static constexpr int kMaxThresholdSteps = 4096;

    PeakDataSetOC() = default;
    PeakDataSetOC(const PeakDataSetOC &) = delete;
    PeakDataSetOC &operator=(const PeakDataSetOC &) = delete;

    // N: spectrum values to scan (>= 0); fftData: N values in dB, re-read on every call;
    // minThreshold: starting hysteresis in dB; fftScale: Hz per bin; lowFreq: the wanted peak
    // spacing in Hz; threshIncrement: factor by which the hysteresis grows per step.
    // Any values are accepted; nonsense gives few or no peaks, never a hang. Returns true.
    bool setupWithN(int N, const double *fftData, double minThreshold, double fftScale,
                    double lowFreq, double threshIncrement);

    // Finds, interpolates and ranks the peaks of the current spectrum. Call once per segment.
    void peaksForDensity();
    // Picks the peaks with hysteresis t (dB), strict comparisons throughout; a rise still open
    // at the end is not recorded. Returns the number of peaks.
    int findPeaks(double hysteresis);
    // Refines each peak's bin and height by a parabola through its bin and both neighbours.
    void interpolate();
    // Turns heights into dB above kDbLimit and ranks the two highest peaks.
    void shiftUp();

    // Frequency of the highest (rank 0) or second-highest (rank 1) peak, -1 when none.
    [[nodiscard]] double getHighestXAtRank(int rank) const;
    [[nodiscard]] int getNPeaks() const { return nPeaks; }
    // Peak i (0 .. getNPeaks() - 1): bin index as found, frequency in Hz, height in dB.
    [[nodiscard]] double getIndexVal(int i) const;
    [[nodiscard]] double getXVal(int i) const;
    [[nodiscard]] double getYVal(int i) const;

    // Goodness of fundamental freq in Hz: 0 when freq <= 0, not a number, or there are no
    // peaks. Evaluates both scoring passes (every peak near a harmonic, and the best peak of
    // each harmonic) in one scan.
    [[nodiscard]] double computeGoodnessForFreq(double freq);

    // Objects run the goodness scan four peaks at a time where the processor can
    // (wideVectorsAvailable()). Switching it off gives the same results more slowly: a test
    // compares them.
    void setWideVectors(bool on) { wideVectors = on && wideVectorsAvailable(); }
    [[nodiscard]] bool usesWideVectors() const { return wideVectors; }

    // Goodness evaluations since the last peaksForDensity(): a measure of the search's work.
    [[nodiscard]] int getGoodnessCount() const { return goodnessCount; }

    // One line "Peak %d x %f y %f\n" per peak, then the two candidates.
    [[nodiscard]] std::string report() const;

private:
    [[nodiscard]] double meanSpacing(int count) const;
    // Goodness from the two scores of freq and its Lorentz base, with the cached totals.
    double goodness(double freq);
    double goodnessWide(double freq);
    double goodnessNarrow(double freq);
    [[nodiscard]] double finishGoodness(double allScore, double harmonicScore, double base,
                                        double freq) const;

    std::vector<double> indexVals; // bin of each peak, rising
    std::vector<double> xVals;     // interpolated frequency, Hz
    std::vector<double> yVals;     // height, dB (above kDbLimit after shiftUp)
    // The peaks of the threshold tried before, while peaksForDensity() tries the next.
    std::vector<double> previousIndexVals;
    std::vector<double> previousYVals;
    int previousCount = 0;
    const double *fftData = nullptr;
    int fftLength = 0;
    int nPeaks = 0;
    double minThreshold = 0.0;
    double fftScale = 0.0;
    double lowFreq = 0.0;
    double threshIncrement = 0.0;
    double highestXs[2] = {-1.0, -1.0};
    double highestYs[2] = {0.0, 0.0};
    // Scratch of computeGoodnessForFreq: harmonic number (shifted by one, with an entry before
    // and after), weighted height (score), and the factors of the scan of each peak.
    std::vector<double> harmonicVals;
    std::vector<double> scoreVals;
    std::vector<double> capVals;   // +infinity within a group, -infinity at its first peak
    std::vector<double> closeVals; // 1 at the last peak of a group above harmonic 0, else 0
    std::vector<double> termVals;  // the score, or 0 below harmonic 1
    // Sums over the peaks that no fundamental changes, kept from one goodness to the next.
    bool totalsValid = false;
    double totalHeight = 0.0;
    double weightedFreq = 0.0;
    double highestHeight = 0.0;
    int goodnessCount = 0;
    bool wideVectors = wideVectorsAvailable();
};

} // namespace quorval
