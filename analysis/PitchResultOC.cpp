#include "analysis/PitchResultOC.h"

#include "analysis/Check.h"
#include "analysis/FFTOC.h"
#include "analysis/PeakDataSetOC.h"
#include "analysis/WavFileOC.h"
#include "analysis/WideVectors.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numbers>

namespace quorval {

namespace {

constexpr std::uint64_t kExponentBits = 0x7ff0000000000000;
constexpr std::uint64_t kExponentOne = 0x0010000000000000;

// A sample is infinite or NaN when its exponent bits are all ones: adding one to the exponent
// then carries into the top bit. Integer arithmetic, so that loops over samples vectorise.
inline std::uint64_t exponentCarry(double sample)
{
    return (std::bit_cast<std::uint64_t>(sample) & kExponentBits) + kExponentOne;
}

// Writes segment × w into out and answers whether every sample of segment is finite: one pass,
// the finiteness noted on the way. The ranges never overlap.
QUORVAL_INLINE bool weigh(const double *__restrict segment, const double *__restrict w,
                          double *__restrict out, int count)
{
    std::uint64_t carries = 0;
    for (int i = 0; i < count; i++) {
        carries |= exponentCarry(segment[i]);
        out[i] = segment[i] * w[i];
    }
    return (carries >> 63) == 0;
}

// The same loop compiled twice: with AVX2 four samples go through each instruction. Products
// are rounded alike either way.
QUORVAL_WIDE bool weighWide(const double *segment, const double *w, double *out, int count)
{
    return weigh(segment, w, out, count);
}

bool weighNarrow(const double *segment, const double *w, double *out, int count)
{
    return weigh(segment, w, out, count);
}

constexpr double kDecibelsPerNeper = 8.685889638065036; // 20 / ln 10
constexpr double kLn2 = 0.6931471805599453;
constexpr double kSqrt2 = 1.4142135623730951;
constexpr std::uint64_t kMantissaBits = 0x000fffffffffffff;
constexpr std::uint64_t kOneBits = 0x3ff0000000000000;
// 2^52 as a double's bits: a small integer or'ed into its mantissa reads as 2^52 plus itself.
constexpr std::uint64_t kTwoTo52Bits = 0x4330000000000000;
constexpr double kTwoTo52 = 4503599627370496.0;

// 20 log10(q) of a positive, normal, finite q to within 1e-9 dB: q = 2^e m with m in [√½, √2),
// and ln m = 2 atanh(s), s = (m − 1) / (m + 1), |s| < 0.172, by its series to s^11 (the next
// term is below 2e-11). The exponent and mantissa are taken apart with bit masks and shifts
// that vector units have, and no branch or call: a loop over bins vectorises.
QUORVAL_INLINE double quickDecibels(double q)
{
    const auto bits = std::bit_cast<std::uint64_t>(q);
    double e = std::bit_cast<double>((bits >> 52) | kTwoTo52Bits) - (kTwoTo52 + 1023.0);
    double m = std::bit_cast<double>((bits & kMantissaBits) | kOneBits);
    const bool high = m > kSqrt2;
    m = high ? 0.5 * m : m;
    e = high ? e + 1.0 : e;
    const double s = (m - 1.0) / (m + 1.0);
    const double s2 = s * s;
    const double series =
        1.0 + s2 * (1.0 / 3.0 + s2 * (1.0 / 5.0 + s2 * (1.0 / 7.0 + s2 * (1.0 / 9.0 + s2 / 11.0))));
    return kDecibelsPerNeper * (e * kLn2 + 2.0 * s * series);
}

// Every bin of spectrum (magnitudes) in place: the floor where its quotient v × inverse lies
// below floorQ or v is 0, else max(quickDecibels(quotient), floorDb), the library's answer to
// within 1e-9 dB. One straight pass: quiet and loud bins alike take the logarithm, and the
// quiet ones the floor instead, so that the loop vectorises. False, with the spectrum as it was,
// where a bin is infinite or NaN (the quick logarithm reads finite values only).
QUORVAL_INLINE bool quickDecibelsOf(double *spectrum, int size, double inverse, double floorQ,
                                    double floorDb)
{
    std::uint64_t carries = 0;
    for (int i = 0; i < size; i++)
        carries |= exponentCarry(spectrum[i]);
    if ((carries >> 63) != 0)
        return false;
    for (int i = 0; i < size; i++) {
        const double v = spectrum[i];
        const double q = v * inverse;
        const double db = std::max(quickDecibels(q), floorDb);
        spectrum[i] = !(q < floorQ) && v > 0.0 ? db : floorDb;
    }
    return true;
}

QUORVAL_WIDE bool quickDecibelsWide(double *spectrum, int size, double inverse, double floorQ,
                                    double floorDb)
{
    return quickDecibelsOf(spectrum, size, inverse, floorQ, floorDb);
}

bool quickDecibelsNarrow(double *spectrum, int size, double inverse, double floorQ, double floorDb)
{
    return quickDecibelsOf(spectrum, size, inverse, floorQ, floorDb);
}

} // namespace

void PitchResultOC::prepare(FFTOC &transform, PeakDataSetOC *peaks, int highest, double minHz,
                            double maxHz, double threshold, double floorDb)
{
    fft = &transform;
    peakData = peaks;
    nHighest = highest;
    freqMin = minHz;
    freqMax = maxHz;
    goodnessThreshold = threshold;
    dbLimit = floorDb;
    nFreqs = transform.getN();
    QUORVAL_CHECK(nFreqs >= 1 && nFreqs <= (1 << 30));
    nFrames = 2 * nFreqs;
    fftSize = nFreqs + 1;
    samples.resize(static_cast<std::size_t>(nFrames));
    loudBins.resize(static_cast<std::size_t>(fftSize));
    fftResult = nullptr;
    lastGoodnessFreq = std::numeric_limits<double>::quiet_NaN();
    freq = 0.0;
    goodness = 0.0;
}

bool PitchResultOC::setupFromWavFile(WavFileOC &wavFile, int byteLoc, FFTOC &transform,
                                     PeakDataSetOC *peaks, int highest, double minHz, double maxHz,
                                     double threshold, double floorDb)
{
    prepare(transform, peaks, highest, minHz, maxHz, threshold, floorDb);
    windowed = false;
    return wavFile.getSamples(samples.data(), byteLoc, nFrames);
}

void PitchResultOC::setupWithSamples(const double *segment, FFTOC &transform, PeakDataSetOC *peaks,
                                     int highest, double minHz, double maxHz, double threshold,
                                     double floorDb)
{
    prepare(transform, peaks, highest, minHz, maxHz, threshold, floorDb);
    // Copied and weighted in one pass: what compute() would do to a plain copy, with one trip
    // through memory fewer.
    const double *w = hammingWindow();
    windowedFinite = wideVectorsAvailable() ? weighWide(segment, w, samples.data(), nFrames)
                                            : weighNarrow(segment, w, samples.data(), nFrames);
    windowed = true;
}

const double *PitchResultOC::hammingWindow() const
{
    // The window of the last size used on this thread: the same values as computing each weight
    // in place, without a cosine per sample per segment.
    thread_local std::vector<double> window;
    if (window.size() != samples.size()) {
        window.resize(samples.size());
        for (int i = 0; i < nFrames; i++)
            window[static_cast<std::size_t>(i)] =
                0.54 - 0.46 * std::cos(2.0 * std::numbers::pi * i / (nFrames - 1));
    }
    return window.data();
}

void PitchResultOC::hammingTransform()
{
    double *s = samples.data();
    const double *w = hammingWindow();
    for (std::size_t i = 0; i < samples.size(); i++)
        s[i] *= w[i];
}

void PitchResultOC::convertToDecibelsAndLimit()
{
    // The reference is a power of two, as the segment's length is, so multiplying by its
    // inverse rounds exactly as dividing does: both round the same value.
    const double reference = nFrames * 32768.0;
    QUORVAL_CHECK(std::has_single_bit(static_cast<std::uint64_t>(nFrames)));
    const double inverse = 1.0 / reference;
    // A quotient a billionth below the floor's is below the floor whatever the logarithm's last
    // bit: the floor, without a logarithm. Quiet bins between partials are often there.
    if (floorDbFor != dbLimit) {
        floorDbFor = dbLimit;
        floorQuotient = std::pow(10.0, dbLimit / 20.0) * (1.0 - 1e-9);
    }
    // Quick decibels need a floor among the normal numbers, where the quick logarithm is right.
    if (quickDecibels && floorQuotient >= std::numeric_limits<double>::min() &&
        (wideVectorsAvailable()
             ? quickDecibelsWide(fftResult, fftSize, inverse, floorQuotient, dbLimit)
             : quickDecibelsNarrow(fftResult, fftSize, inverse, floorQuotient, dbLimit)))
        return;
    // Every bin takes the floor, and the loud ones, with their quotients, are listed on the way
    // (into the samples' room: the transform has read them) without a branch: whether a bin is
    // loud follows the partials, too irregular to guess. Only the list then takes logarithms.
    // Locals, which the stores into the spectrum cannot be taken to change.
    double *quotients = samples.data();
    double *spectrum = fftResult;
    int *loud = loudBins.data();
    const double floorDb = dbLimit;
    const double floorQ = floorQuotient;
    const int size = fftSize;
    int count = 0;
    for (int i = 0; i < size; i++) {
        const double v = spectrum[i];
        const double q = v * inverse;
        quotients[count] = q;
        loud[count] = i;
        count += static_cast<int>(!(q < floorQ) && v > 0.0);
        spectrum[i] = floorDb;
    }
    for (int j = 0; j < count; j++)
        spectrum[loud[j]] = std::max(20.0 * std::log10(quotients[j]), floorDb);
}

void PitchResultOC::compute()
{
    // A transform resized since set-up would read past the samples.
    QUORVAL_CHECK(fft != nullptr && fft->getN() == nFreqs);
    bool finite = windowedFinite;
    if (!windowed) {
        std::uint64_t carries = 0;
        for (double s : samples)
            carries |= exponentCarry(s);
        finite = (carries >> 63) == 0;
        hammingTransform();
    }
    fft->compute(samples.data());
    // The result array belongs to the transform, which is ours to use until the next segment:
    // converting it in place is what the peak set, set up on the same array, reads.
    fftResult = const_cast<double *>(fft->getResult());
    convertToDecibelsAndLimit();
    // freq and goodness stay at the 0 of set-up unless the search finds better.
    if (peakData == nullptr || !finite)
        return;
    peakData->peaksForDensity();
    lastGoodnessFreq = std::numeric_limits<double>::quiet_NaN();

    // The peak set ranks two candidates; further ranks have none.
    const int ranks = std::min(nHighest, 2);
    for (int rank = 0; rank < ranks; rank++) {
        const double x = peakData->getHighestXAtRank(rank);
        if (!(x > 0.0 && x >= freqMin && std::isfinite(x)))
            continue;
        for (int divisor = 1; divisor <= kMaxDivisor; divisor++) {
            const double f = x / divisor;
            if (!(f >= freqMin))
                break;
            if (!(f < freqMax))
                continue;
            const double g = goodnessAt(f);
            if (!(g > goodness * goodnessThreshold))
                continue;
            // Only a refined frequency inside the range is taken, never the unrefined one.
            const double refined = refine(f);
            if (freqMin <= refined && refined < freqMax) {
                const double refinedGoodness = goodnessAt(refined);
                if (refinedGoodness > goodness) {
                    freq = refined;
                    goodness = refinedGoodness;
                }
            }
        }
    }
}

double PitchResultOC::goodnessAt(double f)
{
    // The search asks again for the frequency it was just handed: answer from the last one.
    if (f != lastGoodnessFreq) {
        lastGoodnessFreq = f;
        lastGoodness = peakData->computeGoodnessForFreq(f);
    }
    return lastGoodness;
}

double PitchResultOC::refineFreq(double f)
{
    // The peak set may have moved on to another segment since this object's last search.
    lastGoodnessFreq = std::numeric_limits<double>::quiet_NaN();
    return refine(f);
}

double PitchResultOC::refine(double f)
{
    if (f <= 0.0)
        return f;
    QUORVAL_CHECK(peakData != nullptr);
    const double g0 = goodnessAt(f);
    const double h = kFirstStep * f;
    const double f1 = f + h;
    const double g1 = goodnessAt(f1);
    if (g1 == g0)
        return f + h / 2.0;

    // Bracketing: walk uphill, away from the lower of the first two points. dir is the walking
    // direction; "back" is the point behind "best", "out" the newest point ahead of it.
    double d = h * (1.0 + kPhi);
    const double dir = g1 > g0 ? 1.0 : -1.0;
    double back = dir > 0.0 ? f : f1;
    double backG = dir > 0.0 ? g0 : g1;
    double best = dir > 0.0 ? f1 : f;
    double bestG = dir > 0.0 ? g1 : g0;
    double out = best + dir * d;
    double outG = goodnessAt(out);
    while (outG > bestG && d < kPhi * f) {
        back = best;
        backG = bestG;
        best = out;
        bestG = outG;
        d *= 1.0 + kPhi;
        out = best + dir * d;
        outG = goodnessAt(out);
    }
    const double inner = out - dir * kPhi * d;
    const double innerG = goodnessAt(inner);

    // Keep three points in rising frequency, the best one in the middle.
    double a = back;
    double ga = backG;
    double b = best;
    double gb = bestG;
    double c = inner;
    double gc = innerG;
    if (innerG > bestG || outG > bestG) {
        a = best;
        ga = bestG;
        b = inner;
        gb = innerG;
        c = out;
        gc = outG;
    }
    if (a > c) {
        std::swap(a, c);
        std::swap(ga, gc);
    }

    GoldenBracket bracket{a, ga, b, gb, c, gc};
    return narrowBracket(bracket, d, h, [this](double x) { return goodnessAt(x); });
}

} // namespace quorval
