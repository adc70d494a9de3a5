#include "analysis/PeakDataSetOC.h"

#include "analysis/Check.h"
#include "analysis/WideVectors.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>

namespace quorval {

namespace {

constexpr double kNone = -std::numeric_limits<double>::max();

// Width and mean weight of the Lorentz curve for fundamental freq.
struct Lorentz
{
    double w2;   // squared half width, Hz²
    double base; // mean weight over one harmonic spacing

    explicit Lorentz(double freq, double fftScale)
    {
        w2 = (freq / 4.0) * fftScale;
        const double r = 2.0 * std::sqrt(w2) / freq;
        base = r * std::atan(1.0 / r);
    }
};

// printf-style append; "%f" of the "none" height alone is over 300 characters.
template <typename... Args>
void appendFormatted(std::string &text, const char *format, Args... args)
{
    const int length = std::snprintf(nullptr, 0, format, args...);
    if (length <= 0)
        return;
    const std::size_t start = text.size();
    text.resize(start + static_cast<std::size_t>(length) + 1);
    std::snprintf(text.data() + start, static_cast<std::size_t>(length) + 1, format, args...);
    text.resize(start + static_cast<std::size_t>(length));
}

} // namespace

bool PeakDataSetOC::setupWithN(int N, const double *data, double threshold, double scale,
                               double low, double increment)
{
    fftLength = N;
    const auto room = static_cast<std::size_t>(N > 0 ? N / 2 : 0);
    indexVals.assign(room, 0.0);
    xVals.assign(room, 0.0);
    yVals.assign(room, 0.0);
    previousIndexVals.assign(room, 0.0);
    previousYVals.assign(room, 0.0);
    previousCount = 0;
    harmonicVals.assign(room + 2, 0.0);
    scoreVals.assign(room, 0.0);
    capVals.assign(room, 0.0);
    closeVals.assign(room, 0.0);
    termVals.assign(room, 0.0);
    fftData = data;
    minThreshold = threshold;
    fftScale = scale;
    lowFreq = low;
    threshIncrement = increment;
    nPeaks = 0;
    highestXs[0] = highestXs[1] = -1.0;
    highestYs[0] = highestYs[1] = kNone;
    return true;
}

int PeakDataSetOC::findPeaks(double t)
{
    nPeaks = 0;
    totalsValid = false;
    if (fftLength <= 0)
        return 0;
    // Undecided until a value leaves the band of t around the first one.
    double reference = fftData[0];
    int referenceIndex = 0;
    bool rising = false;
    int i = 0;
    for (;; i++) {
        if (i == fftLength)
            return 0;
        const double v = fftData[i];
        if (v > reference + t || v < reference - t) {
            rising = v > reference + t;
            reference = v;
            referenceIndex = i;
            i++;
            break;
        }
    }
    // Rising, a new high moves the reference, a fall of more than t records the peak; falling,
    // a rise of more than t turns, a new low moves the reference. The high wins over the fall
    // and the rise over the low when t < 0 lets both hold. A turn is the rare event and takes a
    // branch; whether a value moves the reference is as good as random on a rough spectrum, so
    // that is a selection (a maximum or minimum) rather than a branch.
    double *index = indexVals.data();
    double *height = yVals.data();
    int count = 0;
    for (; i < fftLength; i++) {
        const double v = fftData[i];
        if (rising) {
            if (!(v > reference) && v < reference - t) {
                // Each peak needs a rise and a fall, so N values hold at most N / 2 peaks.
                QUORVAL_CHECK(static_cast<std::size_t>(count) < indexVals.size());
                index[count] = referenceIndex;
                height[count] = reference;
                count++;
                rising = false;
                reference = v;
                referenceIndex = i;
                continue;
            }
            referenceIndex = v > reference ? i : referenceIndex;
            reference = v > reference ? v : reference;
        } else {
            if (v > reference + t) {
                rising = true;
                reference = v;
                referenceIndex = i;
                continue;
            }
            referenceIndex = v < reference ? i : referenceIndex;
            reference = v < reference ? v : reference;
        }
    }
    nPeaks = count;
    return nPeaks;
}

double PeakDataSetOC::meanSpacing(int count) const
{
    return indexVals[static_cast<std::size_t>(count - 1)] * fftScale / (count - 1);
}

void PeakDataSetOC::peaksForDensity()
{
    // The peaks of the threshold before the last are kept aside, so that going back to them is
    // a swap rather than another scan.
    const auto keepPrevious = [this] {
        std::swap(indexVals, previousIndexVals);
        std::swap(yVals, previousYVals);
        previousCount = nPeaks;
    };
    const auto backToPrevious = [this] {
        std::swap(indexVals, previousIndexVals);
        std::swap(yVals, previousYVals);
        nPeaks = previousCount;
    };
    double t = minThreshold;
    int count = findPeaks(t);
    if (count >= 2) {
        double spacing = meanSpacing(count);
        if (!(spacing > lowFreq)) {
            for (int step = 0; step < kMaxThresholdSteps; step++) {
                double next = t * threshIncrement;
                if (next > 0.9 && next < 1.1)
                    next = 1.0;
                // A threshold that no longer grows would repeat the same peaks for ever.
                if (!(next > t))
                    break;
                keepPrevious();
                count = findPeaks(next);
                if (count < 2) {
                    if (t > 0)
                        backToPrevious();
                    break;
                }
                const double nextSpacing = meanSpacing(count);
                if (nextSpacing <= lowFreq) {
                    t = next;
                    spacing = nextSpacing;
                    continue;
                }
                if (t > 0 && nextSpacing - lowFreq > lowFreq - spacing)
                    backToPrevious();
                break;
            }
        }
    }
    interpolate();
    shiftUp();
    goodnessCount = 0;
}

void PeakDataSetOC::interpolate()
{
    totalsValid = false;
    for (int i = 0; i < nPeaks; i++) {
        const auto at = static_cast<std::size_t>(i);
        const int k = static_cast<int>(indexVals[at]);
        double x = k;
        double y = yVals[at];
        if (k >= 1 && k < fftLength - 1) {
            const double a = fftData[k - 1];
            const double b = fftData[k];
            const double c = fftData[k + 1];
            const double d = (2.0 * b - a - c) / 2.0;
            const double p = (c - a) / (4.0 * d);
            x = k + p;
            y = b + p * d * p;
        }
        xVals[at] = x * fftScale;
        yVals[at] = y;
    }
}

void PeakDataSetOC::shiftUp()
{
    totalsValid = false;
    highestXs[0] = highestXs[1] = -1.0;
    highestYs[0] = highestYs[1] = kNone;
    for (int i = 0; i < nPeaks; i++) {
        const auto at = static_cast<std::size_t>(i);
        const double y = yVals[at] - kDbLimit;
        yVals[at] = y;
        if (y > highestYs[0]) {
            highestXs[1] = highestXs[0];
            highestYs[1] = highestYs[0];
            highestXs[0] = xVals[at];
            highestYs[0] = y;
        } else if (y > highestYs[1]) {
            highestXs[1] = xVals[at];
            highestYs[1] = y;
        }
    }
}

double PeakDataSetOC::getHighestXAtRank(int rank) const
{
    QUORVAL_CHECK(rank == 0 || rank == 1);
    return highestXs[rank];
}

double PeakDataSetOC::getIndexVal(int i) const
{
    QUORVAL_CHECK(i >= 0 && i < nPeaks);
    return indexVals[static_cast<std::size_t>(i)];
}

double PeakDataSetOC::getXVal(int i) const
{
    QUORVAL_CHECK(i >= 0 && i < nPeaks);
    return xVals[static_cast<std::size_t>(i)];
}

double PeakDataSetOC::getYVal(int i) const
{
    QUORVAL_CHECK(i >= 0 && i < nPeaks);
    return yVals[static_cast<std::size_t>(i)];
}

namespace {

// Harmonic number (into harmonic[i]) and score (height times Lorentz weight less its base) of
// each of n peaks at x with heights y, for fundamental freq; nonzero when a harmonic number is in
// doubt or undefined (see goodness()). The arrays never overlap, which lets the loop vectorise
// without checks.
QUORVAL_INLINE std::uint32_t weighPeaks(const double *__restrict x, const double *__restrict y,
                                        double *__restrict harmonic, double *__restrict score,
                                        std::size_t n, double freq, double w2, double base)
{
    const double inverse = 1.0 / freq;
    std::uint32_t plain = 0;
    for (std::size_t i = 0; i < n; i++) {
        const double estimate = x[i] * inverse + 0.5;
        // Truncation is floor for 0 <= estimate < 1e6, and cheaper; the clamp keeps the
        // conversion defined for every other value, which the doubt test then refuses.
        double clamped = estimate > 0.0 ? estimate : 0.0;
        clamped = clamped < 1e6 ? clamped : 1e6;
        const double h = static_cast<double>(static_cast<std::int32_t>(clamped));
        const double fraction = estimate - h;
        plain |= static_cast<std::uint32_t>(!(estimate >= 0.0) | !(estimate < 1e6) |
                                            !(fraction > 1e-9) | !(fraction < 1.0 - 1e-9));
        harmonic[i] = h;
        const double dev = x[i] - h * freq;
        const double weight = 1.0 / (dev * dev / w2 + 1.0);
        score[i] = y[i] * (weight - base);
    }
    return plain;
}

// The factors of the scan of n peaks (see goodness()) from their harmonic numbers (peak i's at
// harmonic[i + 1], with the entries before and after) and scores; nonzero when a score is not
// finite.
QUORVAL_INLINE std::uint32_t scanFactors(const double *__restrict harmonic,
                                         const double *__restrict score, double *__restrict cap,
                                         double *__restrict close, double *__restrict term,
                                         std::size_t n)
{
    constexpr double infinity = std::numeric_limits<double>::infinity();
    std::uint32_t plain = 0;
    for (std::size_t i = 0; i < n; i++) {
        const double h = harmonic[i + 1];
        // At a group's first peak the running maximum starts again.
        cap[i] = h == harmonic[i] ? infinity : -infinity;
        // The last peak of a group adds the group's best, except in harmonic 0.
        close[i] = ((h != harmonic[i + 2]) & (h != 0.0)) ? 1.0 : 0.0;
        term[i] = h >= 1.0 ? score[i] : 0.0;
        // An undefined score would take a stale best below: the plain scan handles those.
        plain |= static_cast<std::uint32_t>(!(score[i] > kNone) | !(score[i] < infinity));
    }
    return plain;
}

} // namespace

QUORVAL_INLINE double PeakDataSetOC::goodness(double freq)
{
    goodnessCount++;
    if (!(freq > 0.0))
        return 0.0;
    const Lorentz lorentz(freq, fftScale);
    const auto n = static_cast<std::size_t>(nPeaks);
    const double *x = xVals.data();
    const double *y = yVals.data();
    // harmonic[i + 1] belongs to peak i: harmonic[0] is the group before the first peak (0),
    // harmonic[n + 1] an end mark no harmonic number equals.
    double *harmonic = harmonicVals.data();
    double *score = scoreVals.data();
    double *cap = capVals.data();
    double *close = closeVals.data();
    double *term = termVals.data();
    constexpr double infinity = std::numeric_limits<double>::infinity();

    // Harmonic number, Lorentz weight and score of every peak in one loop the compiler
    // vectorises, divisions included. The harmonic number comes from a product with 1 / freq,
    // within 1e-9 of the quotient while below 1e6; only when that leaves doubt about which side
    // of an integer x / freq + 0.5 falls (or for negative, huge or undefined values) is the
    // quotient itself taken, in the plain scan below.
    const double base = lorentz.base;
    std::uint32_t plain = weighPeaks(x, y, harmonic + 1, score, n, freq, lorentz.w2, base);
    harmonic[0] = 0.0;
    harmonic[n + 1] = -1.0;

    // Heights, their frequency-weighted sum and the highest do not depend on freq.
    if (!totalsValid) {
        totalHeight = 0.0;
        weightedFreq = 0.0;
        highestHeight = kNone;
        for (std::size_t i = 0; i < n; i++) {
            totalHeight += y[i];
            weightedFreq += x[i] * y[i];
            if (y[i] > highestHeight)
                highestHeight = y[i];
        }
        totalsValid = true;
    }

    // Both scores, each sum taken in the same order as the two passes one after the other, so the
    // result is the same to the last bit. With every harmonic number its truncation, peaks of a
    // harmonic are neighbours, and a group's best peak adds bestHeight × (bestWeight − base), the
    // very product that is its score: a group adds its greatest score. Which way the tests go is
    // as good as random, so everything but the sums and the maximum is worked out beforehand,
    // vectorised, as factors: a skipped term becomes an added ±0 (a finite score times 0), which
    // changes no sum here (a sum started at +0 is never -0).
    double allScore = 0.0;
    double harmonicScore = 0.0;
    if (plain == 0)
        plain = scanFactors(harmonic, score, cap, close, term, n);
    if (plain == 0) {
        // Only the sums and the maximum run from peak to peak.
        double best = -infinity;
        for (std::size_t i = 0; i < n; i++) {
            best = cap[i] > 0.0 ? std::max(score[i], best) : score[i];
            harmonicScore += close[i] * best;
            allScore += term[i];
        }
        return finishGoodness(allScore, harmonicScore, base, freq);
    }

    // Harmonic numbers in doubt or undefined scores: the scan as the two passes describe it,
    // with each harmonic number the quotient's, where a group with no scored peak adds the stale
    // best of an earlier one.
    double group = 0.0;
    double bestHeight = 0.0;
    double bestWeight = 0.0;
    double bestScore = kNone;
    for (std::size_t i = 0; i < n; i++) {
        const double h = std::floor(x[i] / freq + 0.5);
        const double dev = x[i] - h * freq;
        const double weight = 1.0 / (dev * dev / lorentz.w2 + 1.0);
        score[i] = y[i] * (weight - base);
        if (h != group) {
            if (group != 0.0)
                harmonicScore += bestHeight * (bestWeight - base);
            group = h;
            bestScore = kNone;
        }
        if (h >= 1.0) {
            allScore += score[i];
            if (score[i] > bestScore) {
                bestHeight = y[i];
                bestWeight = weight;
                bestScore = score[i];
            }
        }
    }
    if (group != 0.0)
        harmonicScore += bestHeight * (bestWeight - base);
    return finishGoodness(allScore, harmonicScore, base, freq);
}

double PeakDataSetOC::computeGoodnessForFreq(double freq)
{
    return wideVectors ? goodnessWide(freq) : goodnessNarrow(freq);
}

// The same body compiled twice: with AVX2 four peaks go through each instruction, without it two.
// Both round every operation alike, so they give the same results.
QUORVAL_WIDE double PeakDataSetOC::goodnessWide(double freq)
{
    return goodness(freq);
}

double PeakDataSetOC::goodnessNarrow(double freq)
{
    return goodness(freq);
}

double PeakDataSetOC::finishGoodness(double allScore, double harmonicScore, double base,
                                     double freq) const
{
    if (totalHeight == 0.0)
        return 0.0;
    const double g1 = allScore / (1.0 - base);
    const double m = 2.0 * (weightedFreq / totalHeight) / freq;
    const double g2 = harmonicScore / (highestHeight * m) / (1.0 - base);
    return g1 * g2;
}

std::string PeakDataSetOC::report() const
{
    std::string text;
    for (int i = 0; i < nPeaks; i++) {
        const auto at = static_cast<std::size_t>(i);
        appendFormatted(text, "Peak %d x %f y %f\n", i, xVals[at], yVals[at]);
    }
    appendFormatted(text, "x %f y %f x %f y %f\n", highestXs[0], highestYs[0], highestXs[1],
                    highestYs[1]);
    return text;
}

} // namespace quorval
