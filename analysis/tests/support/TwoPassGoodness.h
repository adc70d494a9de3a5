#pragma once

#include "analysis/PeakDataSetOC.h"

// The two scoring passes of the goodness written out one after the other, as the definition
// reads: the reference the one-scan goodness of PeakDataSetOC is compared with, bit for bit.
namespace quorval::testsignals {

// One scoring pass over the peaks.
struct Sums
{
    double totalHeight = 0.0;  // sum of all heights (harmonic pass only), dB
    double weightedFreq = 0.0; // sum of frequency × height (harmonic pass only)
    double score = 0.0;        // sum of weighted heights
    double base = 0.0;         // mean Lorentz weight of a randomly placed peak
    double highest = 0.0;      // greatest height (harmonic pass only), dB
};

// Every peak near a harmonic of freq (Hz > 0), with the set's fftScale Hz per bin.
Sums addSums(const PeakDataSetOC &set, double freq, double fftScale);
// The best peak of each harmonic, with the totals.
Sums addSumsByHarmonic(const PeakDataSetOC &set, double freq, double fftScale);
// Goodness from the two passes; 0 where the set's own gives 0 for want of peaks or a freq.
double twoPassGoodness(const PeakDataSetOC &set, double freq, double fftScale);

} // namespace quorval::testsignals
