#include "analysis/PitchRefinerOC.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

namespace quorval {

namespace {

// A harmonic's bin must point within this many bins of where the harmonic should be. The skirts
// of a partial next to it lie at least 1.78 bins off (harmonics of the lowest candidate are at
// least 3.56 bins apart), and noise rarely lands this close.
constexpr double kBinTolerance = 0.35;
// Below this share of power at the odd harmonics (or at the non-multiples of three) the
// candidate is an octave (a twelfth) low: a real tone, however weak its fundamental, keeps a
// third of its power or more there, and ripple and noise at 10 dB SNR well under a hundredth.
constexpr double kUpShare = 0.03;
// Above this share at the odd harmonics of the octave below (or the non-multiples of three of the
// twelfth below) the pitch is that one: wide of kUpShare, so that no candidate passes both ways.
constexpr double kDownShare = 0.15;
// Harmonics this many bins apart or more are measured through the Blackman–Harris window: its
// main lobe is four bins wide on each side, so even the octave below stays resolved.
constexpr double kWideSpacingBins = 18.0;
// The candidate's own frequency weighs in the prediction of where the next harmonic lies as a
// first harmonic with this share of the strongest bin's power would: a noise bin that happens
// to point near a buried fundamental then cannot lead the search away from the real harmonics.
// Harmonics weaker than kPredictingPower of it count towards the shares but not the estimate.
constexpr double kPriorPower = 0.01;
constexpr double kPredictingPower = 1e-4;
// Bins this far below the strongest are left out altogether: 90 dB down they change no share.
constexpr double kNegligiblePower = 1e-9;

} // namespace

bool PitchRefinerOC::setupWithNFrames(int frames, double binHz)
{
    nFrames = 0;
    if (frames < 8 || frames > (1 << 24) || (frames & (frames - 1)) != 0 ||
        !(binHz > 0.0 && std::isfinite(binHz)))
        return false;
    const auto n = static_cast<std::size_t>(frames);
    const double twoPi = 2.0 * std::numbers::pi;
    // Windows over n - 1 samples, so that the second transform's samples, one later, fit the
    // segment; zero just outside both ends.
    hann.assign(n - 1, 0.0);
    blackman.assign(n - 1, 0.0);
    for (std::size_t i = 0; i + 1 < n; i++) {
        const double x = twoPi * static_cast<double>(i + 1) / frames;
        hann[i] = 0.5 - 0.5 * std::cos(x);
        blackman[i] = 0.35875 - 0.48829 * std::cos(x) + 0.14128 * std::cos(2.0 * x) -
                      0.01168 * std::cos(3.0 * x);
    }
    segment.assign(n, 0.0);
    powers.assign(n / 2 + 1, 0.0);
    re.assign(n, 0.0);
    im.assign(n, 0.0);
    twiddleRe.assign(n / 2, 0.0);
    twiddleIm.assign(n / 2, 0.0);
    for (std::size_t k = 0; k < n / 2; k++) {
        twiddleRe[k] = std::cos(twoPi * static_cast<double>(k) / frames);
        twiddleIm[k] = -std::sin(twoPi * static_cast<double>(k) / frames);
    }
    bitReversed.assign(n, 0);
    int bits = 0;
    while ((1 << bits) < frames)
        bits++;
    for (int i = 0; i < frames; i++) {
        int r = 0;
        for (int b = 0; b < bits; b++)
            r |= ((i >> b) & 1) << (bits - 1 - b);
        bitReversed[static_cast<std::size_t>(i)] = r;
    }
    nFrames = frames;
    hzPerBin = binHz;
    return true;
}

void PitchRefinerOC::setSamples(const double *samples)
{
    std::copy(samples, samples + nFrames, segment.begin());
}

void PitchRefinerOC::transform(const std::vector<double> &weights)
{
    const double *samples = segment.data();
    // Both real transforms in one complex one: the window over samples 0 .. n - 2 as the real
    // part and over samples 1 .. n - 1 as the imaginary part, separated again per bin.
    const int n = nFrames;
    for (int i = 0; i < n; i++) {
        const auto to = static_cast<std::size_t>(bitReversed[static_cast<std::size_t>(i)]);
        if (i + 1 < n) {
            const double w = weights[static_cast<std::size_t>(i)];
            re[to] = w * samples[i];
            im[to] = w * samples[i + 1];
        } else {
            re[to] = 0.0;
            im[to] = 0.0;
        }
    }
    // Radix-2 decimation in time (Cooley and Tukey, 1965).
    for (int half = 1; half < n; half *= 2) {
        const int stride = n / (2 * half);
        for (int start = 0; start < n; start += 2 * half) {
            for (int j = 0; j < half; j++) {
                const auto a = static_cast<std::size_t>(start + j);
                const auto b = a + static_cast<std::size_t>(half);
                const auto t = static_cast<std::size_t>(j * stride);
                const double wr = twiddleRe[t];
                const double wi = twiddleIm[t];
                const double xr = re[b] * wr - im[b] * wi;
                const double xi = re[b] * wi + im[b] * wr;
                re[b] = re[a] - xr;
                im[b] = im[a] - xi;
                re[a] += xr;
                im[a] += xi;
            }
        }
    }
    // Each bin's power, |x1|², and the strongest.
    strongest = 0.0;
    for (int k = 1; k < n / 2; k++) {
        const auto at = static_cast<std::size_t>(k);
        const auto mirror = static_cast<std::size_t>(n - k);
        const double sumRe = re[at] + re[mirror];
        const double diffIm = im[at] - im[mirror];
        powers[at] = 0.25 * (sumRe * sumRe + diffIm * diffIm);
        if (k >= 2)
            strongest = std::max(strongest, powers[at]);
    }
}

double PitchRefinerOC::binOf(int k) const
{
    // x1 and x2 (the transform a sample later) of bin k from the packed transform; 1 <= k < n / 2.
    const auto at = static_cast<std::size_t>(k);
    const auto mirror = static_cast<std::size_t>(nFrames - k);
    const double x1r = re[at] + re[mirror];
    const double x1i = im[at] - im[mirror];
    const double x2r = im[at] + im[mirror];
    const double x2i = re[mirror] - re[at];
    // x2 conj(x1) turns by the phase advance over one sample; turned back by the bin's own
    // centre, what is left is the offset from it, a small angle near a partial.
    const double cr = x2r * x1r + x2i * x1i;
    const double ci = x2i * x1r - x2r * x1i;
    const double rr = cr * twiddleRe[at] - ci * twiddleIm[at];
    const double ri = cr * twiddleIm[at] + ci * twiddleRe[at];
    double offset = 0.0;
    if (rr > 0.0 && std::abs(ri) < 0.1 * rr) {
        // arctan by its series: the next term, t^11 / 11, is below 1e-12.
        const double t = ri / rr;
        const double t2 = t * t;
        offset = t * (1.0 - t2 * (1.0 / 3.0 - t2 * (1.0 / 5.0 - t2 * (1.0 / 7.0 - t2 / 9.0))));
    } else {
        offset = std::atan2(ri, rr);
    }
    return k + offset * nFrames / (2.0 * std::numbers::pi);
}

PitchRefinerOC::Measurement PitchRefinerOC::measure(double freq) const
{
    Measurement m;
    if (!(freq > 0.0))
        return m;
    // The estimate so far predicts where the next harmonic lies: a few cents of error in the
    // starting value would put high harmonics bins away. The answer is the harmonics' alone.
    double estimate = freq;
    const double priorWeight = kPriorPower * strongest;
    const double priorBins = priorWeight * freq / hzPerBin;
    double weightSum = 0.0;
    double weightedBins = 0.0;
    double odd = 0.0;
    double other = 0.0;
    const double lastBin = nFrames / 2 - 2;
    for (int h = 1; h <= kMaxHarmonics; h++) {
        const double p = h * estimate / hzPerBin;
        if (p > lastBin)
            break;
        if (p < 2.0)
            continue;
        // The strongest of the bins within one of p whose frequency points at p. The phase is
        // the costly part: bins are tried from the strongest down, and the first that points
        // right is the one.
        int bins[3] = {0, 0, 0};
        int count = 0;
        for (int k = static_cast<int>(std::ceil(p - 1.0));
             k <= static_cast<int>(p + 1.0) && count < 3; k++) {
            if (!(powers[static_cast<std::size_t>(k)] > kNegligiblePower * strongest))
                continue;
            int at = count++;
            for (; at > 0 && powers[static_cast<std::size_t>(bins[at - 1])] <
                                 powers[static_cast<std::size_t>(k)];
                 at--)
                bins[at] = bins[at - 1];
            bins[at] = k;
        }
        double bestPower = 0.0;
        double bestBin = 0.0;
        for (int c = 0; c < count; c++) {
            const double bin = binOf(bins[c]);
            if (std::abs(bin - p) <= kBinTolerance) {
                bestPower = powers[static_cast<std::size_t>(bins[c])];
                bestBin = bin;
                break;
            }
        }
        if (!(bestPower > 0.0))
            continue;
        m.power += bestPower;
        if (h % 2 == 1)
            odd += bestPower;
        if (h % 3 != 0)
            other += bestPower;
        m.used++;
        if (bestPower < kPredictingPower * strongest)
            continue;
        const double weight = bestPower * h * h;
        weightSum += weight;
        weightedBins += weight * bestBin / h;
        estimate = (weightedBins + priorBins) / (weightSum + priorWeight) * hzPerBin;
    }
    if (!(weightSum > 0.0) || !std::isfinite(weightedBins) || !std::isfinite(m.power))
        return Measurement{};
    m.freq = weightedBins / weightSum * hzPerBin;
    m.oddShare = odd / m.power;
    m.otherShare = other / m.power;
    return m;
}

double PitchRefinerOC::refine(double freq, double freqMin, double freqMax)
{
    harmonicsUsed = 0;
    if (nFrames == 0 || !(freq > 0.0) || !std::isfinite(freq))
        return freq;
    transform(freq / hzPerBin >= kWideSpacingBins ? blackman : hann);
    Measurement m = measure(freq);
    if (m.used == 0)
        return freq;

    // Up while the candidate's odd harmonics (or non-multiples of three) are empty: the two
    // steps reach a double octave or an octave and a twelfth.
    bool moved = false;
    for (int step = 0; step < 2; step++) {
        const double factor = m.oddShare < kUpShare ? 2.0 : m.otherShare < kUpShare ? 3.0 : 0.0;
        if (factor == 0.0 || !(factor * m.freq < freqMax))
            break;
        const Measurement up = measure(factor * m.freq);
        if (up.used == 0)
            break;
        m = up;
        moved = true;
    }
    // Down when the octave (twelfth) below has real harmonics between ours. Not after a move
    // up, whose candidate was just found empty there.
    for (int divisor = 2; !moved && divisor <= 3; divisor++) {
        if (!(m.freq / divisor >= freqMin))
            continue;
        const Measurement down = measure(m.freq / divisor);
        const double share = divisor == 2 ? down.oddShare : down.otherShare;

        // Every harmonic of ours is one of the candidate's: it must have found them.
        if (down.used > 0 && share > kDownShare && down.power >= 0.5 * m.power) {
            m = down;
            moved = true;
        }
    }
    // After a move, once more from the final value, whose harmonics are now predicted to a
    // fraction of a bin.
    if (moved) {
        const Measurement final = measure(m.freq);
        if (final.used > 0)
            m = final;
    }
    if (!(m.freq >= freqMin && m.freq < freqMax))
        return freq;
    harmonicsUsed = m.used;
    return m.freq;
}

} // namespace quorval
