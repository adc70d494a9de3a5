#include "analysis/PitchRefinerOC.h"

#include "analysis/FFTOC.h"

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

// Cosine-sum windows, w(n) = Σ c_j cos(2πjn / nFrames) over j = -3 .. 3, by c_0 .. c_3.
constexpr double kHann[] = {0.5, -0.25, 0.0, 0.0};
// Four-term Blackman–Harris (Harris, Proc. IEEE 66, 1978).
constexpr double kBlackmanHarris[] = {0.35875, -0.48829 / 2, 0.14128 / 2, -0.01168 / 2};

} // namespace

bool PitchRefinerOC::setupWithNFrames(int frames, double binHz)
{
    nFrames = 0;
    if (frames < 8 || frames > (1 << 24) || (frames & (frames - 1)) != 0 ||
        !(binHz > 0.0 && std::isfinite(binHz)))
        return false;
    const auto n = static_cast<std::size_t>(frames);
    const auto half = n / 2;
    const double twoPi = 2.0 * std::numbers::pi;
    segment.assign(n, 0.0);
    powers.assign(half, 0.0);
    x1Re.assign(half, 0.0);
    x1Im.assign(half, 0.0);
    uRe.assign(half + 1 + 2 * kTaps, 0.0);
    uIm.assign(half + 1 + 2 * kTaps, 0.0);
    twiddleRe.assign(half, 0.0);
    twiddleIm.assign(half, 0.0);
    for (std::size_t k = 0; k < half; k++) {
        twiddleRe[k] = std::cos(twoPi * static_cast<double>(k) / frames);
        twiddleIm[k] = -std::sin(twoPi * static_cast<double>(k) / frames);
    }
    int logN = 0;
    while ((std::size_t{1} << logN) < half)
        logN++;
    (void)fft.setupWithLogN(logN);
    nFrames = frames;
    hzPerBin = binHz;
    return true;
}

void PitchRefinerOC::setSamples(const double *samples)
{
    std::copy(samples, samples + nFrames, segment.begin());
}

void PitchRefinerOC::transform(const double (&window)[kTaps + 1])
{
    std::copy(std::begin(window), std::end(window), std::begin(coefficients));
    // The plain transform of the real segment, through the packed transform of half its length.
    fft.compute(segment.data());
    const FFTOC::Complex *z = fft.getPacked();
    const int m = nFrames / 2;
    // Unpacked into u(k), k = 0 .. m, kept with kTaps values either side from its symmetry
    // u(-k) = u(k)*, u(m + k) = u(m - k)*, so that every window tap below finds its bin.
    // Bins 0 and m pair z[0] with itself: u(0) = re + im, u(m) = re − im.
    uRe[kTaps] = z[0].re + z[0].im;
    uIm[kTaps] = 0.0;
    uRe[static_cast<std::size_t>(m + kTaps)] = z[0].re - z[0].im;
    uIm[static_cast<std::size_t>(m + kTaps)] = 0.0;
    for (int k = 1; k < m; k++) {
        const FFTOC::Complex a = z[k];
        const FFTOC::Complex b = z[m - k];
        const double er = 0.5 * (a.re + b.re);
        const double ei = 0.5 * (a.im - b.im);
        const double orr = 0.5 * (a.im + b.im);
        const double oi = 0.5 * (b.re - a.re);
        const double tr = twiddleRe[static_cast<std::size_t>(k)];
        const double ti = twiddleIm[static_cast<std::size_t>(k)];
        const auto to = static_cast<std::size_t>(k + kTaps);
        uRe[to] = er + orr * tr - oi * ti;
        uIm[to] = ei + orr * ti + oi * tr;
    }
    for (int j = 1; j <= kTaps; j++) {
        const auto below = static_cast<std::size_t>(kTaps - j);
        const auto above = static_cast<std::size_t>(kTaps + j);
        uRe[below] = uRe[above];
        uIm[below] = -uIm[above];
        const auto past = static_cast<std::size_t>(m + kTaps + j);
        const auto before = static_cast<std::size_t>(m + kTaps - j);
        uRe[past] = uRe[before];
        uIm[past] = -uIm[before];
    }
    // The windowed transform: a cosine-sum window multiplies by a few complex exponentials,
    // which in the spectrum is a sum over neighbouring bins. Each bin's power, and the strongest.
    // Taps whose coefficient is 0 (two of Hann's three) are left out.
    int taps = kTaps;
    while (taps > 0 && coefficients[taps] == 0.0)
        taps--;
    strongest = 0.0;
    for (int k = 1; k < m; k++) {
        const auto at = static_cast<std::size_t>(k + kTaps);
        double xr = coefficients[0] * uRe[at];
        double xi = coefficients[0] * uIm[at];
        for (int j = 1; j <= taps; j++) {
            xr += coefficients[j] * (uRe[at - j] + uRe[at + j]);
            xi += coefficients[j] * (uIm[at - j] + uIm[at + j]);
        }
        const auto bin = static_cast<std::size_t>(k);
        x1Re[bin] = xr;
        x1Im[bin] = xi;
        powers[bin] = xr * xr + xi * xi;
        if (k >= 2)
            strongest = std::max(strongest, powers[bin]);
    }
}

double PitchRefinerOC::binOf(int k) const
{
    // The transform of the segment under the window one sample later, w(n - 1): its taps turn
    // by e^(-ijθ), θ = 2π / nFrames. Against x1 it turns by the frequency's offset from the bin's
    // centre (Brown and Puckette's phase advance over one sample, less the bin's own); the
    // window's value past either end, (π / nFrames)² at most, is too small to matter.
    const auto at = static_cast<std::size_t>(k + kTaps);
    double yr = coefficients[0] * uRe[at];
    double yi = coefficients[0] * uIm[at];
    for (int j = 1; j <= kTaps; j++) {
        const double tr = twiddleRe[static_cast<std::size_t>(j)];
        const double ti = twiddleIm[static_cast<std::size_t>(j)];
        // e^(-ijθ) u(k - j) + e^(ijθ) u(k + j)
        const double lr = uRe[at - j];
        const double li = uIm[at - j];
        const double hr = uRe[at + j];
        const double hi = uIm[at + j];
        yr += coefficients[j] * (tr * lr - ti * li + tr * hr + ti * hi);
        yi += coefficients[j] * (tr * li + ti * lr + tr * hi - ti * hr);
    }
    const double xr = x1Re[static_cast<std::size_t>(k)];
    const double xi = x1Im[static_cast<std::size_t>(k)];
    const double rr = yr * xr + yi * xi;
    const double ri = yi * xr - yr * xi;
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

double PitchRefinerOC::powerBetween(double freq, int divisor) const
{
    double sum = 0.0;
    const double lastBin = nFrames / 2 - 2;
    for (int h = 1; h <= kMaxHarmonics; h++) {
        const double p = h * freq / hzPerBin;
        if (p > lastBin)
            break;
        if (p < 2.0 || h % divisor == 0)
            continue;
        double most = 0.0;
        for (int k = static_cast<int>(std::ceil(p - 1.0)); k <= static_cast<int>(p + 1.0); k++)
            most = std::max(most, powers[static_cast<std::size_t>(k)]);
        sum += most;
    }
    return sum;
}

double PitchRefinerOC::refine(double freq, double freqMin, double freqMax)
{
    harmonicsUsed = 0;
    if (nFrames == 0 || !(freq > 0.0) || !std::isfinite(freq))
        return freq;
    transform(freq / hzPerBin >= kWideSpacingBins ? kBlackmanHarris : kHann);
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
        // The power near the harmonics between ours, real or not, bounds their share: most
        // segments need no measurement of the candidate at all.
        const double between = powerBetween(m.freq / divisor, divisor);
        if (!(between > kDownShare / (1.0 - kDownShare) * 0.5 * m.power))
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
