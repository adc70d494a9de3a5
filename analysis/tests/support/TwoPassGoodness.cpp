#include "analysis/tests/support/TwoPassGoodness.h"

#include <cmath>
#include <limits>

namespace quorval::testsignals {

namespace {

constexpr double kNone = -std::numeric_limits<double>::max();

// Width and mean weight of the Lorentz curve for fundamental freq.
struct Lorentz
{
    double w2;
    double base;

    Lorentz(double freq, double fftScale)
    {
        w2 = (freq / 4.0) * fftScale;
        const double r = 2.0 * std::sqrt(w2) / freq;
        base = r * std::atan(1.0 / r);
    }
};

Sums cleared()
{
    Sums sums;
    sums.highest = kNone;
    return sums;
}

} // namespace

Sums addSums(const PeakDataSetOC &set, double freq, double fftScale)
{
    Sums sums = cleared();
    const Lorentz lorentz(freq, fftScale);
    sums.base = lorentz.base;
    for (int i = 0; i < set.getNPeaks(); i++) {
        const double x = set.getXVal(i);
        const double h = std::floor(x / freq + 0.5);
        if (h >= 1.0) {
            const double dev = x - h * freq;
            const double weight = 1.0 / (dev * dev / lorentz.w2 + 1.0);
            sums.score += set.getYVal(i) * (weight - lorentz.base);
        }
    }
    return sums;
}

Sums addSumsByHarmonic(const PeakDataSetOC &set, double freq, double fftScale)
{
    Sums sums = cleared();
    const Lorentz lorentz(freq, fftScale);
    sums.base = lorentz.base;
    // The harmonic number is kept as a double: a far-off peak's x / freq may not fit an int.
    double group = 0.0;
    double bestHeight = 0.0;
    double bestWeight = 0.0;
    double bestScore = kNone;
    const int n = set.getNPeaks();
    for (int i = 0; i <= n; i++) {
        // One closing step at frequency 0, height 0 settles the last group.
        const bool real = i < n;
        const double x = real ? set.getXVal(i) : 0.0;
        const double y = real ? set.getYVal(i) : 0.0;
        const double h = real ? std::floor(x / freq + 0.5) : 0.0;
        if (real) {
            sums.totalHeight += y;
            sums.weightedFreq += x * y;
            if (y > sums.highest)
                sums.highest = y;
        }
        if (h != group) {
            if (group != 0.0)
                sums.score += bestHeight * (bestWeight - lorentz.base);
            group = h;
            bestScore = kNone;
        }
        if (h >= 1.0) {
            const double dev = x - h * freq;
            const double weight = 1.0 / (dev * dev / lorentz.w2 + 1.0);
            const double score = y * (weight - lorentz.base);
            if (score > bestScore) {
                bestHeight = y;
                bestWeight = weight;
                bestScore = score;
            }
        }
    }
    return sums;
}

double twoPassGoodness(const PeakDataSetOC &set, double f, double fftScale)
{
    if (!(f > 0.0))
        return 0.0;
    const Sums all = addSums(set, f, fftScale);
    const Sums best = addSumsByHarmonic(set, f, fftScale);
    if (best.totalHeight == 0.0)
        return 0.0;
    const double m = 2.0 * (best.weightedFreq / best.totalHeight) / f;
    return all.score / (1.0 - all.base) * (best.score / (best.highest * m) / (1.0 - best.base));
}

} // namespace quorval::testsignals
