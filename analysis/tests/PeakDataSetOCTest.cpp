#include "analysis/PeakDataSetOC.h"

#include "analysis/tests/support/TestSignals.h"
#include "analysis/tests/support/TwoPassGoodness.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace quorval {
namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

// A peak set over a spectrum the test owns, one Hz per bin unless told otherwise.
struct Peaks
{
    explicit Peaks(std::vector<double> values, double minThreshold = 1.0, double lowFreq = 1e9,
                   double threshIncrement = 2.0, double fftScale = 1.0)
        : spectrum(std::move(values))
    {
        set.setupWithN(static_cast<int>(spectrum.size()), spectrum.data(), minThreshold, fftScale,
                       lowFreq, threshIncrement);
    }

    std::vector<double> peakBins() const
    {
        std::vector<double> bins;
        for (int i = 0; i < set.getNPeaks(); i++)
            bins.push_back(set.getIndexVal(i));
        return bins;
    }

    std::vector<double> spectrum;
    PeakDataSetOC set;
};

// Isolated triangular bumps [0, height, 0, ...] every 6 bins starting at bin 6, and one tall
// bump of height 100 at bin 78 that every threshold keeps: the mean peak spacing is then
// 78 / (count - 1) bins.
std::vector<double> bumps(const std::vector<double> &heights)
{
    std::vector<double> values(80, 0.0);
    for (std::size_t j = 0; j < heights.size(); j++)
        values[6 * (j + 1)] = heights[j];
    values[78] = 100.0;
    return values;
}

// Twelve bumps: 4 of 0.75, 5 of 1.5, 1 of 3, 2 of 6. Peaks (with the tall one) and their mean
// spacing by threshold: 0.5 → 13 (6.5), 1 → 9 (9.75), 2 → 4 (26), 4 → 3 (39), 8 → 1.
const std::vector<double> kLadder = {0.75, 0.75, 0.75, 0.75, 1.5, 1.5,
                                     1.5,  1.5,  1.5,  3.0,  6.0, 6.0};

// The peaks' bins (and, through their count, how many) after the threshold has adapted. Under
// a positive threshold every peak is an isolated bump, whose height is its own bin's.
std::vector<double> binsAfterAdapting(const std::vector<double> &heights, double minThreshold,
                                      double lowFreq, double increment)
{
    Peaks peaks(bumps(heights), minThreshold, lowFreq, increment);
    peaks.set.peaksForDensity();
    for (int i = 0; i < peaks.set.getNPeaks() && minThreshold > 0.0; i++) {
        const auto bin = static_cast<std::size_t>(peaks.set.getIndexVal(i));
        EXPECT_EQ(peaks.set.getYVal(i), peaks.spectrum[bin] - PeakDataSetOC::kDbLimit) << bin;
    }
    return peaks.peakBins();
}

int peaksAfterAdapting(const std::vector<double> &heights, double minThreshold, double lowFreq,
                       double increment)
{
    return static_cast<int>(binsAfterAdapting(heights, minThreshold, lowFreq, increment).size());
}

// The peaks' bins at one threshold.
std::vector<double> binsAt(const std::vector<double> &heights, double threshold)
{
    Peaks peaks(bumps(heights));
    peaks.set.findPeaks(threshold);
    return peaks.peakBins();
}

TEST(PeakDataSetOC, findPeaksFollowsRisesAndFallsBeyondTheHysteresis)
{
    struct Case
    {
        const char *what;
        std::vector<double> values;
        std::vector<double> bins;
    };
    const Case cases[] = {
        {"rising only", {0, 1, 2, 3, 4, 5}, {}},
        {"a rise still open at the end", {5, 0, 1, 2, 3, 4, 5}, {}},
        {"one rise and fall beyond t: the top bin", {0, 2, 5, 3, 0}, {2}},
        {"a fall of exactly t does not count", {0, 5, 4}, {}},
        {"a rise of exactly t does not count", {0, 1, 0}, {}},
        {"a plateau keeps its first bin", {0, 5, 5, 5, 0}, {1}},
        {"a dip shallower than t does not split", {0, 5, 4.5, 6, 0}, {3}},
        {"a deeper dip does", {0, 5, 3, 6, 0}, {1, 3}},
        {"nothing to scan", {}, {}},
    };
    for (const Case &c : cases) {
        Peaks peaks(c.values);
        EXPECT_EQ(peaks.set.findPeaks(1.0), static_cast<int>(c.bins.size())) << c.what;
        EXPECT_EQ(peaks.peakBins(), c.bins) << c.what;
    }
}

TEST(PeakDataSetOC, negativeHysteresisFillsButNeverOverflowsThePeakArrays)
{
    // With t < 0 a flat spectrum has a peak every second bin, the most there can be, including
    // bin 0, which keeps its integer bin as no parabola fits there.
    for (int n : {1, 2, 3, 4, 7, 8}) {
        Peaks flat(std::vector<double>(static_cast<std::size_t>(n), -50.0), -1.0);
        EXPECT_EQ(flat.set.findPeaks(-1.0), n / 2) << n;
    }
    Peaks flat(std::vector<double>(8, -50.0), -1.0, 1e9, 2.0, 10.0);
    flat.set.findPeaks(-1.0);
    flat.set.interpolate();
    ASSERT_GE(flat.set.getNPeaks(), 1);
    EXPECT_EQ(flat.set.getXVal(0), 0.0);
    EXPECT_EQ(flat.set.getYVal(0), -50.0);
}

TEST(PeakDataSetOC, thresholdGrowsUntilThePeaksAreAsSparseAsTheLowestFundamental)
{
    // Already sparse enough: the first threshold's peaks stay.
    EXPECT_EQ(peaksAfterAdapting(kLadder, 0.5, 5.0, 2.0), 13);
    // 0.5, 1, 2, 4 all too dense for 100 Hz; 8 leaves one peak, so the peaks of 4 come back.
    EXPECT_EQ(peaksAfterAdapting(kLadder, 0.5, 100.0, 2.0), 3);
    EXPECT_EQ(binsAfterAdapting(kLadder, 0.5, 100.0, 2.0), binsAt(kLadder, 4.0));
    // 26 Hz overshoots 20 by less than 9.75 falls short: the sparser peaks of threshold 2 stay.
    EXPECT_EQ(peaksAfterAdapting(kLadder, 0.5, 20.0, 2.0), 4);
    // 26 Hz overshoots 10 by more than 9.75 falls short: back to the peaks of threshold 1.
    EXPECT_EQ(peaksAfterAdapting(kLadder, 0.5, 10.0, 2.0), 9);
    EXPECT_EQ(binsAfterAdapting(kLadder, 0.5, 10.0, 2.0), binsAt(kLadder, 1.0));
    // An exact tie (26 − 17.875 = 17.875 − 9.75) keeps the new threshold's peaks.
    EXPECT_EQ(peaksAfterAdapting(kLadder, 0.5, 17.875, 2.0), 4);

    // With increment 2.1 the second threshold, 1.05, snaps to 1.0, which keeps the four bumps
    // of 1.03 (9 peaks, 9.75 Hz apart); 2.1 then gives 5 peaks 19.5 Hz apart, too far beyond
    // 12, so the peaks of 1.0 come back. Without the snap, 1.05 would go back to 0.5's 13.
    const std::vector<double> snapLadder = {0.75, 0.75, 0.75, 0.75, 1.03, 1.03,
                                            1.03, 1.03, 3.0,  3.0,  3.0,  3.0};
    EXPECT_EQ(peaksAfterAdapting(snapLadder, 0.5, 12.0, 2.1), 9);
}

TEST(PeakDataSetOC, thresholdThatStopsGrowingEndsTheSearchWithItsPeaks)
{
    // Each of these would repeat one threshold for ever; the peaks of the last one stay.
    EXPECT_EQ(peaksAfterAdapting(kLadder, 0.5, 100.0, 1.0), 13);
    EXPECT_EQ(peaksAfterAdapting(kLadder, 0.5, 100.0, 0.5), 13);
    EXPECT_EQ(peaksAfterAdapting(kLadder, 0.5, 100.0, -2.0), 13);
    EXPECT_EQ(peaksAfterAdapting(kLadder, 0.5, 100.0, kNan), 13);
    EXPECT_EQ(peaksAfterAdapting(kLadder, 0.0, 100.0, 2.0), 13);
    // 1.05 climbs into the snap band and is held at 1.0 there: the peaks of 1.0.
    EXPECT_EQ(peaksAfterAdapting(kLadder, 0.5, 100.0, 1.05), 9);
    // A negative threshold never grows with a positive increment.
    EXPECT_GE(peaksAfterAdapting(kLadder, -1.0, 100.0, 2.0), 13);
    // An infinite increment jumps to an infinite threshold with no peaks: back to 0.5's.
    EXPECT_EQ(peaksAfterAdapting(kLadder, 0.5, 100.0, kInf), 13);
    EXPECT_EQ(binsAfterAdapting(kLadder, 0.5, 100.0, kInf), binsAt(kLadder, 0.5));
    // An increment barely above 1 still ends (at the step limit) with the peaks of a
    // threshold below 1, where the 0.75 bumps are still found.
    EXPECT_EQ(peaksAfterAdapting(kLadder, 0.5, 100.0, 1.0 + 1e-12), 13);
    // Nonsense spacing targets end at once.
    EXPECT_EQ(peaksAfterAdapting(kLadder, 0.5, kNan, 2.0), 9);
    EXPECT_EQ(peaksAfterAdapting(kLadder, kNan, 100.0, 2.0), 0);
}

TEST(PeakDataSetOC, interpolationFindsTheVertexOfAParabola)
{
    // y = 10 − (i − 5.3)² around the peak: the fitted vertex is exact.
    std::vector<double> values(12, 0.0);
    for (int i = 3; i <= 7; i++)
        values[static_cast<std::size_t>(i)] = 10.0 - (i - 5.3) * (i - 5.3);
    Peaks peaks(values, 1.0, 1e9, 2.0, 2.5);
    peaks.set.peaksForDensity();
    ASSERT_EQ(peaks.set.getNPeaks(), 1);
    EXPECT_NEAR(peaks.set.getXVal(0), 5.3 * 2.5, 1e-12);
    // Heights are shifted to dB above the floor.
    EXPECT_NEAR(peaks.set.getYVal(0), 10.0 - PeakDataSetOC::kDbLimit, 1e-12);
    // A single peak is the highest candidate; there is no second one.
    EXPECT_EQ(peaks.set.getHighestXAtRank(0), peaks.set.getXVal(0));
    EXPECT_EQ(peaks.set.getHighestXAtRank(1), -1.0);
}

TEST(PeakDataSetOC, rankingKeepsTheTwoHighestAndLetsTheLowerFrequencyWinTies)
{
    Peaks peaks({0, 7, 0, 9, 0, 9, 0, 8, 0, 0}, 1.0, 0.1);
    peaks.set.peaksForDensity();
    ASSERT_EQ(peaks.set.getNPeaks(), 4);
    EXPECT_EQ(peaks.set.getHighestXAtRank(0), peaks.set.getXVal(1));
    EXPECT_EQ(peaks.set.getHighestXAtRank(1), peaks.set.getXVal(2));
}

// A peak set holding given peaks (Hz, height): each is a narrow bump on a flat floor, one Hz
// per bin, so interpolation leaves it at its bin.
struct HarmonicPeaks
{
    explicit HarmonicPeaks(const std::vector<std::pair<int, double>> &peakList)
        : spectrum(4096, 0.0)
    {
        for (auto [bin, height] : peakList)
            spectrum[static_cast<std::size_t>(bin)] = height;
        set.setupWithN(static_cast<int>(spectrum.size()), spectrum.data(), 1.0, 1.0, 1.0, 2.0);
        set.peaksForDensity();
    }

    std::vector<double> spectrum;
    PeakDataSetOC set;
};

TEST(PeakDataSetOC, goodnessPrefersTheFundamentalOfAHarmonicSeries)
{
    HarmonicPeaks series({{200, 60}, {400, 50}, {600, 45}, {800, 40}, {1000, 35}});
    const double atFundamental = series.set.computeGoodnessForFreq(200.0);
    EXPECT_GT(atFundamental, 0.0);
    for (double wrong : {100.0, 190.0, 210.0, 266.7, 400.0})
        EXPECT_LT(series.set.computeGoodnessForFreq(wrong), atFundamental) << wrong;
    // Nothing to score, or no frequency.
    for (double nonsense : {0.0, -200.0, kNan})
        EXPECT_EQ(series.set.computeGoodnessForFreq(nonsense), 0.0);
    HarmonicPeaks none({});
    EXPECT_EQ(none.set.computeGoodnessForFreq(200.0), 0.0);
    // Every evaluation counts.
    EXPECT_EQ(series.set.getGoodnessCount(), 9);
}

TEST(PeakDataSetOC, harmonicPassScoresOnlyTheBestPeakOfEachHarmonic)
{
    // Two peaks near harmonic 1 of 200 Hz, one near harmonic 2, one below harmonic 1.
    HarmonicPeaks peaks({{50, 30}, {196, 40}, {203, 30}, {401, 20}});
    const double f = 200.0;
    const testsignals::Sums all = testsignals::addSums(peaks.set, f, 1.0);
    const testsignals::Sums best = testsignals::addSumsByHarmonic(peaks.set, f, 1.0);

    const double w2 = f / 4.0;
    const double r = 2.0 * std::sqrt(w2) / f;
    const double base = r * std::atan(1.0 / r);
    auto score = [&](int i) {
        const double x = peaks.set.getXVal(i);
        const double dev = x - std::floor(x / f + 0.5) * f;
        return peaks.set.getYVal(i) * (1.0 / (dev * dev / w2 + 1.0) - base);
    };
    EXPECT_DOUBLE_EQ(all.base, base);
    EXPECT_DOUBLE_EQ(all.score, score(1) + score(2) + score(3));
    EXPECT_DOUBLE_EQ(best.score, std::max(score(1), score(2)) + score(3));
    // Heights count in the totals wherever they are.
    EXPECT_DOUBLE_EQ(best.totalHeight, peaks.set.getYVal(0) + peaks.set.getYVal(1) +
                                           peaks.set.getYVal(2) + peaks.set.getYVal(3));
    EXPECT_DOUBLE_EQ(best.highest, peaks.set.getYVal(1));
}

TEST(PeakDataSetOC, goodnessEqualsTheTwoPassesToTheLastBit)
{
    // Rough spectra in dB with many peaks, 43 Hz per bin.
    for (std::uint32_t seed = 1; seed <= 6; seed++) {
        auto values = testsignals::whiteNoise(20.0, 513, seed);
        for (double &v : values)
            v -= 60.0;
        Peaks peaks(values, 0.5 * seed, 100.0 * seed, 1.5, 44100.0 / 1024.0);
        peaks.set.peaksForDensity();
        ASSERT_GT(peaks.set.getNPeaks(), 10);
        std::vector<double> freqs = {1e-4, 1e-300, 3e7, 44100.0 / 1024.0};
        for (double f = 20.0; f < 3000.0; f *= 1.01)
            freqs.push_back(f);
        // Peaks exactly at or halfway between harmonics, where rounding decides the harmonic.
        for (int i = 0; i < peaks.set.getNPeaks(); i += 3) {
            for (double k : {1.0, 2.0, 3.0, 7.0, 1.5, 2.5, 6.5})
                freqs.push_back(peaks.set.getXVal(i) / k);
        }
        // Both widths of the scan, where the processor has the wide one.
        for (bool wide : {true, false}) {
            peaks.set.setWideVectors(wide);
            for (double f : freqs)
                ASSERT_EQ(peaks.set.computeGoodnessForFreq(f),
                          testsignals::twoPassGoodness(peaks.set, f, 44100.0 / 1024.0))
                    << "seed " << seed << " f " << f << " wide " << peaks.set.usesWideVectors();
        }
    }
    // Broken peaks (a flat spectrum under a negative threshold leaves undefined frequencies).
    Peaks flat(std::vector<double>(40, -50.0), -1.0, 1e9, 2.0, 10.0);
    flat.set.findPeaks(-1.0);
    flat.set.interpolate();
    flat.set.shiftUp();
    for (double f : {5.0, 20.0, 1e-9}) {
        const double fused = flat.set.computeGoodnessForFreq(f);
        const double reference = testsignals::twoPassGoodness(flat.set, f, 10.0);
        EXPECT_TRUE(fused == reference || (std::isnan(fused) && std::isnan(reference))) << f;
    }
}

} // namespace
} // namespace quorval
