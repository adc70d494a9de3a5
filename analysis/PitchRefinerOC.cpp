#include "analysis/PitchRefinerOC.h"

#include "analysis/FFTOC.h"
#include "analysis/FirstGreatest.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <limits>
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
// Below this share at the odd harmonics, a candidate with no fundamental is an octave low: none
// that points at it within kFaintFundamental of the strongest bin's power (33 dB; layers that
// beat fade a fundamental for a segment, but not that far), and no power within a bin of it
// above kFaintNear (15 dB; a fundamental that wavers points at neither of its ends, yet is loud).
// Faint odd partials at an attack or a release come with neither.
constexpr double kFaintOddShare = 0.05;
constexpr double kFaintFundamental = 5e-4;
constexpr double kFaintNear = 3e-2;
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
// The harmonic search's pitch may be this far off (relative; 50 cents, as it is now and then on a
// lone partial in noise): the consensus looks for each harmonic that far either side of where the
// search puts it.
constexpr double kStartSpread = 0.0293;
// Harmonics whose frequency over their number is this far from their consensus (relative; 15
// cents) or more are misread: a vibrato sweeping a partial through a resonance of the body can
// shift one harmonic's phase advance by tens of cents while the others stay true.
constexpr double kAgreement = 0.0087;
// Harmonics weaker than this share of the strongest bin's power have no say in the consensus:
// noise at 10 dB SNR lies near a thousandth, and with the weight of a high harmonic it could
// outvote a lone fundamental.
constexpr double kConsensusPower = 0.01;
// The harmonics that vote: the first dozen decide as well as all and cost half as much.
constexpr int kConsensusHarmonics = 12;
// A partial this far from a harmonic (relative; a semitone) may be that harmonic pulled off.
constexpr double kSemitoneSpread = 0.0595;
// The series a strongest partial implies is real where its other harmonics hold this share of
// the strongest bin's power: noise at 10 dB SNR under a lone partial holds a few thousandths.
constexpr double kSeriesBeside = 0.03;
// Where the search's own series holds at least this share of the power of the series such a
// partial implies, it is a note of its own, and the partial is a neighbour's sounding with it
// (the note before or after a slur, a semitone away): the search's pitch stands.
constexpr double kOwnSeriesShare = 0.5;
// Bins this far below the strongest are left out altogether: 90 dB down they change no share.
constexpr double kNegligiblePower = 1e-9;
// The greatest factor a candidate may be below the pitch: as far as the harmonic search goes
// down from a lone partial.
constexpr int kMaxFactor = 12;
// A bin in the main lobe of a steady partial points at the partial's frequency to a small
// fraction of a bin; in a partial of voices that beat, each with its own vibrato (a choir, a
// section), the bins point up to a few tenths of a bin apart. Noise, breath and bow scrape point
// within this of a harmonic only now and then: they stay below the threshold as they did at 0.15
// bins, and at 1 bin start to pass it.
constexpr double kLobeTolerance = 0.5;
// A candidate whose harmonics hold this share of the strongest bin's power is a real series.
constexpr double kHeldPower = 0.1;
// A harmonic that points right with this share of the strongest bin's power is real, however
// small the share of all its kind: noise at 10 dB SNR lies near a few ten-thousandths a bin. Layers
// that beat can take the odd harmonics down to a few of these for a segment.
constexpr double kLoneHarmonic = 0.003;
// Partials are taken as stretched only when at least this many show it, with a stretch this many
// times its standard error: a harmonic tone's partials in noise or vibrato scatter about no
// stretch at all, and fewer would let a single misread partial pose as one.
constexpr int kStretchHarmonics = 4;
constexpr double kStretchSignificance = 8.0;
// Nor below this inharmonicity (a piano's strings lie from 1e-4 to 1e-2): below it the
// partials' leakage into each other and a bow's slight stretch would pose as one.
constexpr double kMinStretch = 5e-5;
// The partials that show whether to look for a stretch at all.
constexpr int kLowestPartials = 6;
// A stiff string's lowest partials rise at many standard errors; a harmonic tone's but rarely at
// this many.
constexpr double kStretchHint = 2.0;

// A weighted least-squares line through (h² − 1, (f_h / h)²): a stiff string's partials lie on
// it exactly, its intercept the first partial's square.
struct StretchFit
{
    double w = 0.0, wx = 0.0, wy = 0.0, wxx = 0.0, wxy = 0.0, wyy = 0.0;
    int n = 0;
    double intercept = 0.0;
    double slope = 0.0;

    void add(int h, double bins, double weight)
    {
        const double x = h * h - 1.0;
        const double y = (bins / h) * (bins / h);
        w += weight;
        wx += weight * x;
        wy += weight * y;
        wxx += weight * x * x;
        wxy += weight * x * y;
        wyy += weight * y * y;
        n++;
    }
    // False when the points do not fix a line.
    bool solve()
    {
        const double sxx = wxx - wx * wx / w;
        if (n < 2 || !(sxx > 0.0))
            return false;
        slope = (wxy - wx * wy / w) / sxx;
        intercept = (wy - slope * wx) / w;
        return intercept > 0.0 && std::isfinite(slope);
    }
    // Slope over its standard error, from the scatter about the line.
    [[nodiscard]] double significance() const
    {
        const double sxx = wxx - wx * wx / w;
        const double syy = wyy - wy * wy / w;
        const double sxy = wxy - wx * wy / w;
        const double residual = std::max(0.0, syy - sxy * sxy / sxx);
        const double error = std::sqrt(residual / (n - 2) / sxx);
        return error > 0.0 ? slope / error
                           : (slope > 0.0 ? std::numeric_limits<double>::infinity() : 0.0);
    }
};

// A candidate whose odd harmonics hold less than this share, over a fundamental weaker than
// kBesideFundamental of the strongest bin's power, is checked against the sound beside the
// segment: a reed's attack or release can double its period for a few tens of milliseconds,
// laying partials halfway between the note's far above kUpShare. A low note with weak odd
// harmonics looks the same in one segment, but holds them on: beside it they are still there.
constexpr double kBesideOddShare = 0.25;
constexpr double kBesideFundamental = 0.06;
// Beside the segment, faint odd harmonics over a fundamental that points right with this share
// of the strongest bin's power are no sign of the octave above: a voice's or a choir's low notes
// can lay nearly all their power on the even harmonics for their whole length. The steady note
// after an attack's period doubling leaves next to nothing at the candidate's fundamental; a
// note that fades into the next can leave a little on one side, so the other side decides.
constexpr double kBesideHeldFundamental = 0.002;
// A segment read this far (relative; 10 cents) from the harmonic search's pitch, or moved from
// it, may straddle a slurred change: the partials of the note before or after, a semitone
// or a tone away, blend into its main lobes and pull the phase advance tens of cents off either
// note. Half a segment before and after lie each on one side of the segment's centre:
// where one of them holds a clear steady series (drawn bright) within kStartSpread of the
// estimate and the other does not, the centre lies in that note, and its steady pitch is the
// segment's.
constexpr double kEdgePull = 0.0058;
constexpr double kSteadyGoodness = 100.0;
// Where both sides hold a clear steady series, each within this (relative; 20 cents) of the
// other, they hold one note through the segment, and a segment read off both by more than
// kEdgePull whose main lobes blend two sounds (they point kLayeredSpread apart) holds something
// brief they do not (a grace note, a click, a breath): the note both hold is its pitch. A
// vibrato's turn also reads off both sides, which lie symmetrically about it, but is one
// partial a harmonic, its lobes pointing as one: its own reading stands.
constexpr double kSidesAgree = 0.0116;
// The bins about a steady partial's peak point at its frequency within a hundredth of a bin or
// so, in noise and vibrato too; where layers of a partial a few cents apart beat, they point
// this far apart (power-weighted mean, bins) or more.
constexpr double kLayeredSpread = 0.03;
// Where the odd harmonics of the octave below hold a share s of the power, the sound repeats at
// its period better than at ours by 2s of the autocorrelation at no lag (1.5s for the
// non-multiples of three of the twelfth below): the layered pitch goes down at the share the
// harmonic moves ask for.
constexpr double kLayeredDown = 2.0 * kDownShare;
// Layers a few cents apart repeat at their period nearly as well as one tone does: the
// autocorrelation there holds this share of its value at no lag or more. Where it holds less,
// as where two notes blend at a slurred change or a note sounds over the room's echo of the
// last, the harmonics' reading stands.
constexpr double kLayeredSimilarity = 0.8;
// Breath and a room's echo lower how well a choir repeats, down to half its value at no lag, and
// draw the harmonics' reading tens of cents off the period: the period stands where the sound
// repeats there at least this well and clearly better than at the harmonics' reading. Where two
// notes blend, the louder one's period repeats nearly as well as the best.
constexpr double kLayeredLeast = 0.55;
constexpr double kLayeredClearer = 0.02;
// An attack or a release changes the partials' level within the segment, which spreads their
// bins as layers do and lowers how well the sound repeats: the lower bar above holds only where
// the segment's two halves hold their power within this factor (6 dB). A choir's beats stay
// within 4 dB.
constexpr double kLevelChange = 4.0;

// A harmonic holding this share or more of the power of the harmonics that vote is a nearly pure
// tone's loudest partial. Where layers of voices beat, it can read tens of cents off the faint
// upper partials for several segments; what the ear and the period follow is then all of them,
// each by its weight. Where it glides (a reed's attack or slur carries it tens of cents across
// a segment while the upper partials hold the note) the consensus stands: that is told by its
// reading half a segment before and after, which must lie within kBorneOut of its own (25 cents)
// and within kHeldAcross of each other (13 cents).
constexpr double kLoudestShare = 0.9;
constexpr double kBorneOut = 0.0145;
constexpr double kHeldAcross = 0.0075;

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
    segment = nullptr;
    besideSamples.assign(n, 0.0);
    before = nullptr;
    after = nullptr;
    powers.assign(half, 0.0);
    x1Re.assign(half, 0.0);
    x1Im.assign(half, 0.0);
    uRe.assign(half + 1 + 2 * kTaps, 0.0);
    uIm.assign(half + 1 + 2 * kTaps, 0.0);
    twiddleRe.assign(half, 0.0);
    twiddleIm.assign(half, 0.0);
    reading.assign(half, 0.0);
    readAt.assign(half, 0u);
    transformCount = 0;
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

void PitchRefinerOC::setSamples(const double *samples, const double *earlier, const double *later)
{
    segment = samples;
    before = earlier;
    after = later;
}

void PitchRefinerOC::transform(const double *samples, const double (&window)[kTaps + 1])
{
    std::copy(std::begin(window), std::end(window), std::begin(coefficients));
    transformed = samples;
    // The plain transform of the real segment, through the packed transform of half its length.
    fft.computePacked(samples);
    const FFTOC::Complex *z = fft.getPacked();
    const int m = nFrames / 2;
    // Unpacked into u(k), k = 0 .. m, kept with kTaps values either side from its symmetry
    // u(-k) = u(k)*, u(m + k) = u(m - k)*, so that every window tap below finds its bin.
    // Bins 0 and m pair z[0] with itself: u(0) = re + im, u(m) = re − im.
    uRe[kTaps] = z[0].re + z[0].im;
    uIm[kTaps] = 0.0;
    uRe[static_cast<std::size_t>(m + kTaps)] = z[0].re - z[0].im;
    uIm[static_cast<std::size_t>(m + kTaps)] = 0.0;
    // Bins k and m - k share their inputs, and their twiddles differ only in the sign of the
    // real part: one pass over the lower half fills both.
    for (int k = 1; 2 * k <= m; k++) {
        const FFTOC::Complex a = z[k];
        const FFTOC::Complex b = z[m - k];
        const double er = 0.5 * (a.re + b.re);
        const double ei = 0.5 * (a.im - b.im);
        const double orr = 0.5 * (a.im + b.im);
        const double oi = 0.5 * (b.re - a.re);
        const double tr = twiddleRe[static_cast<std::size_t>(k)];
        const double ti = twiddleIm[static_cast<std::size_t>(k)];
        const double turnedRe = orr * tr - oi * ti;
        const double turnedIm = orr * ti + oi * tr;
        const auto to = static_cast<std::size_t>(k + kTaps);
        const auto mirror = static_cast<std::size_t>(m - k + kTaps);
        uRe[mirror] = er - turnedRe;
        uIm[mirror] = turnedIm - ei;
        uRe[to] = er + turnedRe;
        uIm[to] = ei + turnedIm;
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
    // Hann needs one tap of three; a loop with the taps fixed lets the compiler vectorise it.
    if (coefficients[2] == 0.0 && coefficients[3] == 0.0)
        applyWindow<1>(m);
    else
        applyWindow<kTaps>(m);
    strongestBin = 2 + firstGreatest(powers.data() + 2, m - 2);
    strongest = powers[static_cast<std::size_t>(strongestBin)];
    // Bin readings of the previous transform are stale from here on.
    if (++transformCount == 0) {
        std::fill(readAt.begin(), readAt.end(), 0u);
        transformCount = 1;
    }
}

template <int taps> void PitchRefinerOC::applyWindow(int m)
{
    const double *re = uRe.data() + kTaps;
    const double *im = uIm.data() + kTaps;
    double c[taps + 1];
    for (int j = 0; j <= taps; j++)
        c[j] = coefficients[j];
    for (int k = 1; k < m; k++) {
        double xr = c[0] * re[k];
        double xi = c[0] * im[k];
        for (int j = 1; j <= taps; j++) {
            xr += c[j] * (re[k - j] + re[k + j]);
            xi += c[j] * (im[k - j] + im[k + j]);
        }
        x1Re[static_cast<std::size_t>(k)] = xr;
        x1Im[static_cast<std::size_t>(k)] = xi;
        powers[static_cast<std::size_t>(k)] = xr * xr + xi * xi;
    }
}

double PitchRefinerOC::binOf(int k) const
{
    // The consensus and the estimate ask for many of the same bins.
    const auto cached = static_cast<std::size_t>(k);
    if (readAt[cached] == transformCount)
        return reading[cached];
    readAt[cached] = transformCount;
    return reading[cached] = phaseAdvanceBin(k);
}

double PitchRefinerOC::phaseAdvanceBin(int k) const
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

double PitchRefinerOC::harmonicNear(double p, double tolerance, double &bin) const
{
    // The strongest of the bins within one of p whose frequency points at p. The phase is the
    // costly part: bins are tried from the strongest down, and the first that points right is
    // the one.
    int bins[3] = {0, 0, 0};
    int count = 0;
    for (int k = static_cast<int>(std::ceil(p - 1.0)); k <= static_cast<int>(p + 1.0) && count < 3;
         k++) {
        if (!(powers[static_cast<std::size_t>(k)] > kNegligiblePower * strongest))
            continue;
        int at = count++;
        for (; at > 0 &&
               powers[static_cast<std::size_t>(bins[at - 1])] < powers[static_cast<std::size_t>(k)];
             at--)
            bins[at] = bins[at - 1];
        bins[at] = k;
    }
    for (int c = 0; c < count; c++) {
        const double b = binOf(bins[c]);
        if (std::abs(b - p) <= tolerance) {
            bin = b;
            return powers[static_cast<std::size_t>(bins[c])];
        }
    }
    return 0.0;
}

double PitchRefinerOC::consensus(double freqBins) const
{
    // Every harmonic read on its own, each where freqBins puts it give or take the error the
    // harmonic search may make: no harmonic leads the others astray, as one misread strong
    // harmonic would when each prediction rests on those before it.
    //
    // Each harmonic's value (its frequency over its number, bins), its say in the median (a vote
    // each: one loud misread partial is still one) and its weight in the mean (power × number²,
    // as in the final estimate). The start itself has half a vote, to break a tie.
    std::array<double, kConsensusHarmonics + 1> values{};
    std::array<double, kConsensusHarmonics + 1> votes{};
    std::array<double, kConsensusHarmonics + 1> weights{};
    values[0] = freqBins;
    votes[0] = 0.5;
    weights[0] = kPriorPower * strongest;
    double total = votes[0];
    std::size_t n = 1;
    const double lastBin = nFrames / 2 - 2;
    for (int h = 1; h <= kConsensusHarmonics; h++) {
        const double p = h * freqBins;
        if (p > lastBin)
            break;
        if (p < 2.0)
            continue;
        double bin = 0.0;
        const double power = harmonicNear(p, std::clamp(p * kStartSpread, kBinTolerance, 1.0), bin);
        if (!(power >= kConsensusPower * strongest))
            continue;
        // Sorted as they come in.
        std::size_t at = n++;
        for (; at > 0 && values[at - 1] > bin / h; at--) {
            values[at] = values[at - 1];
            votes[at] = votes[at - 1];
            weights[at] = weights[at - 1];
        }
        values[at] = bin / h;
        votes[at] = 1.0;
        weights[at] = power * h * h;
        total += 1.0;
    }
    // The median, then a few steps of Tukey's biweight about it: harmonics that disagree with
    // the rest by kAgreement or more have no say.
    double centre = values[0];
    double below = 0.0;
    for (std::size_t i = 0; i < n; i++) {
        below += votes[i];
        if (2.0 * below >= total) {
            centre = values[i];
            break;
        }
    }
    for (int step = 0; step < 4; step++) {
        const double c = kAgreement * centre;
        double sum = 0.0;
        double weightSum = 0.0;
        for (std::size_t i = 0; i < n; i++) {
            const double u = (values[i] - centre) / c;
            if (std::abs(u) >= 1.0)
                continue;
            const double w = weights[i] * (1.0 - u * u) * (1.0 - u * u);
            sum += w * values[i];
            weightSum += w;
        }
        if (!(weightSum > 0.0))
            break;
        centre = sum / weightSum;
    }
    return centre;
}

PitchRefinerOC::Measurement PitchRefinerOC::measure(double freq) const
{
    Measurement m;
    if (!(freq > 0.0))
        return m;
    // The harmonics' consensus is the start; then each harmonic is found where the estimate so
    // far predicts it, since a few cents of error in the start would put high harmonics bins
    // away. Harmonics off the consensus by kAgreement or more count towards the shares (they are
    // there) but not the estimate. The answer is the harmonics' alone.
    const double start = consensus(freq / hzPerBin);
    double estimate = start;
    const double priorWeight = kPriorPower * strongest;
    const double priorBins = priorWeight * start;
    double weightSum = 0.0;
    double weightedBins = 0.0;
    double odd = 0.0;
    double other = 0.0;
    const double lastBin = nFrames / 2 - 2;
    for (int h = 1; h <= kMaxHarmonics; h++) {
        const double p = h * estimate;
        if (p > lastBin)
            break;
        if (p < 2.0)
            continue;
        double bin = 0.0;
        double power = harmonicNear(p, kBinTolerance, bin);
        // A weak low harmonic read off the rest by nearly kAgreement (one moving on its own, as
        // a resonance lets it) can draw the estimate so far that harmonics tens of bins up fall
        // outside kBinTolerance of its prediction: there, the consensus's prediction stands.
        if (!(power > 0.0) && std::abs(h * start - p) > kBinTolerance)
            power = harmonicNear(h * start, kBinTolerance, bin);
        if (!(power > 0.0))
            continue;
        m.power += power;
        m.powerOf[h - 1] = power;
        m.binOf[h - 1] = bin;
        if (h % 2 == 1)
            odd += power;
        if (h % 3 != 0)
            other += power;
        m.used++;
        if (power < kPredictingPower * strongest ||
            !(std::abs(bin / h - start) < kAgreement * start))
            continue;
        const double weight = power * h * h;
        weightSum += weight;
        weightedBins += weight * bin / h;
        estimate = (weightedBins + priorBins) / (weightSum + priorWeight);
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
        sum += powerNear(p);
    }
    return sum;
}

double PitchRefinerOC::powerNear(double p) const
{
    double most = 0.0;
    for (int k = static_cast<int>(std::ceil(p - 1.0)); k <= static_cast<int>(p + 1.0); k++)
        most = std::max(most, powers[static_cast<std::size_t>(k)]);
    return most;
}

double PitchRefinerOC::Measurement::strayMost(int k) const
{
    double most = 0.0;
    for (int h = 1; h <= kMaxHarmonics; h++)
        if (h % k != 0)
            most = std::max(most, powerOf[h - 1]);
    return most;
}

double PitchRefinerOC::Measurement::meanOfAll(double least) const
{
    double weightSum = 0.0;
    double weightedBins = 0.0;
    for (int h = 1; h <= kMaxHarmonics; h++) {
        if (!(powerOf[h - 1] >= least))
            continue;
        const double weight = powerOf[h - 1] * h * h;
        weightSum += weight;
        weightedBins += weight * binOf[h - 1] / h;
    }
    return weightSum > 0.0 ? weightedBins / weightSum : 0.0;
}

int PitchRefinerOC::Measurement::commonFactor(double limit, double lone, int most) const
{
    for (int k = std::min(most, kMaxFactor); k >= 2; k--) {
        double off = 0.0;
        for (int h = 1; h <= kMaxHarmonics; h++)
            if (h % k != 0)
                off += powerOf[h - 1];
        if (off < limit * power && !(strayMost(k) > lone))
            return k;
    }
    return 0;
}

bool PitchRefinerOC::holdsStrongest(const Measurement &m) const
{
    const double freqBins = m.freq / hzPerBin;
    const double b = binOf(strongestBin);
    const auto h = static_cast<int>(std::lround(b / freqBins));
    // Beyond the harmonics measured the candidate cannot be judged: it stands.
    if (h > kMaxHarmonics)
        return true;
    if (h < 1)
        return false;
    if (m.powerOf[h - 1] > 0.0 && std::abs(m.binOf[h - 1] - b) <= kBinTolerance)
        return true;
    // A partial read tens of cents off its harmonic (vibrato through a resonance) is still that
    // harmonic, and so is one whose layers beat, whose phase advance may point a bin or more
    // off while its strongest bin stays within a bin of the harmonic; both where the others hold
    // real power: a candidate the search took from noise peaks holds next to none.
    const bool near = std::abs(b - h * freqBins) <= b * kStartSpread ||
                      std::abs(strongestBin - h * freqBins) <= 1.0;
    return near && m.power >= kHeldPower * strongest;
}

double PitchRefinerOC::firstPartial(const Measurement &m) const
{
    // Most tones are harmonic: where the lowest partials the harmonic series found (too close
    // to their harmonics to be misnumbered) show no clear rise, there is no need to look again.
    StretchFit lowest;
    for (int h = 1; h <= kLowestPartials; h++)
        if (m.powerOf[h - 1] >= kLoneHarmonic * strongest)
            lowest.add(h, m.binOf[h - 1], m.powerOf[h - 1] * h * h);
    if (lowest.n >= kStretchHarmonics && lowest.solve() && !(lowest.significance() >= kStretchHint))
        return m.freq;
    // Each partial looked for where the stretch so far puts it: a harmonic prediction misses
    // the upper partials of a stiff string by bins.
    StretchFit fit;
    StretchFit prediction;
    int found = 0;
    const double fundamental = m.freq / hzPerBin;
    const double lastBin = nFrames / 2 - 2;
    for (int h = 1; h <= kMaxHarmonics; h++) {
        const double p =
            prediction.n > 0
                ? h * std::sqrt(prediction.intercept + prediction.slope * (h * h - 1.0))
                : h * fundamental;
        if (p > lastBin)
            break;
        double bin = 0.0;
        // Until three partials fix the stretch, as far off as the harmonic search may be.
        const double tolerance =
            prediction.n > 0 ? kBinTolerance : std::clamp(p * kStartSpread, kBinTolerance, 1.0);
        const double power = p < 2.0 ? 0.0 : harmonicNear(p, tolerance, bin);
        if (!(power >= kPredictingPower * strongest))
            continue;
        found++;
        // Only partials that noise could not pose as weigh in.
        if (!(power >= kLoneHarmonic * strongest))
            continue;
        fit.add(h, bin, power * h * h);
        StretchFit next = fit;
        if (next.n >= 3 && next.solve() && next.slope > 0.0)
            prediction = next;
    }
    // A stretch read into a harmonic tone's partials from a few misread ones predicts the rest
    // off their places and loses some: the stretch must find every partial the harmonic
    // series found.
    int harmonic = 0;
    for (int h = 1; h <= kMaxHarmonics; h++)
        harmonic += m.powerOf[h - 1] >= kPredictingPower * strongest ? 1 : 0;
    if (found < harmonic || fit.n < kStretchHarmonics || !fit.solve() ||
        !(fit.slope >= kMinStretch * fit.intercept) ||
        !(fit.significance() >= kStretchSignificance))
        return m.freq;
    return std::sqrt(fit.intercept) * hzPerBin;
}

double PitchRefinerOC::goodnessOf(const Measurement &m) const
{
    const double freqBins = m.freq / hzPerBin;
    const double lastBin = nFrames / 2 - 2;
    // A partial's main lobe: two bins either side under Hann, four under Blackman–Harris.
    const double lobe = coefficients[2] == 0.0 ? 2.0 : 4.0;
    const double top = std::min(lastBin, (kMaxHarmonics + 0.5) * freqBins);
    double coherent = 0.0;
    for (int h = 1; h <= kMaxHarmonics; h++) {
        if (!(m.powerOf[h - 1] > 0.0))
            continue;
        const double b = m.binOf[h - 1];
        const int from = std::max(2, static_cast<int>(std::ceil(b - lobe)));
        const int to = std::min(static_cast<int>(lastBin), static_cast<int>(b + lobe));
        for (int k = from; k <= to; k++)
            if (powers[static_cast<std::size_t>(k)] > kNegligiblePower * strongest &&
                std::abs(binOf(k) - b) <= kLobeTolerance)
                coherent += powers[static_cast<std::size_t>(k)];
    }
    double total = 0.0;
    const int from = std::max(2, static_cast<int>(0.5 * freqBins));
    for (int k = from; k <= static_cast<int>(top); k++)
        total += powers[static_cast<std::size_t>(k)];
    if (!(total > 0.0))
        return 0.0;
    const double share = std::min(1.0, coherent / total);
    // Odds of coherent against the rest, scaled so that kThresholdShare reads 100.
    const double odds = share / std::max(1.0 - share, 1e-6);
    return std::min(kMaxGoodness, 100.0 * odds * (1.0 - kThresholdShare) / kThresholdShare);
}

double PitchRefinerOC::lobeSpread(const Measurement &m) const
{
    double spread = 0.0;
    double weight = 0.0;
    const int last = nFrames / 2 - 2;
    for (int h = 1; h <= kMaxHarmonics; h++) {
        if (!(m.powerOf[h - 1] >= kLoneHarmonic * strongest))
            continue;
        // The harmonic's peak: the strongest bin within one of where it points.
        const double b = m.binOf[h - 1];
        int peak = std::max(2, static_cast<int>(std::ceil(b - 1.0)));
        for (int k = peak + 1; k <= std::min(last, static_cast<int>(b + 1.0)); k++)
            if (powers[static_cast<std::size_t>(k)] > powers[static_cast<std::size_t>(peak)])
                peak = k;
        const double centre = binOf(peak);
        for (int k = std::max(2, peak - 1); k <= std::min(last, peak + 1); k++) {
            const double p = powers[static_cast<std::size_t>(k)];
            spread += p * std::abs(binOf(k) - centre);
            weight += p;
        }
    }
    return weight > 0.0 ? spread / weight : 0.0;
}

double PitchRefinerOC::autocorrelation(double theta, int from, int to) const
{
    // Σ P_k cos kθ, by cos (k + 1)θ = 2 cos θ cos kθ − cos (k − 1)θ.
    const double twice = 2.0 * std::cos(theta);
    double previous = std::cos((from - 1) * theta);
    double present = std::cos(from * theta);
    double sum = 0.0;
    for (int k = from; k <= to; k++) {
        sum += powers[static_cast<std::size_t>(k)] * present;
        const double next = twice * present - previous;
        previous = present;
        present = next;
    }
    // Over the window's own, c_0² + 2 Σ c_j² cos jθ: the windowed sound overlaps itself less the
    // longer the lag.
    const double c1 = 0.5 * twice;
    const double c2 = 2.0 * c1 * c1 - 1.0;
    const double c3 = 2.0 * c1 * c2 - c1;
    const double window =
        coefficients[0] * coefficients[0] +
        2.0 * (coefficients[1] * coefficients[1] * c1 + coefficients[2] * coefficients[2] * c2 +
               coefficients[3] * coefficients[3] * c3);
    return sum / window;
}

double PitchRefinerOC::periodicity(double freq, double &similarity, double *atFreq) const
{
    similarity = 0.0;
    // The band the harmonics are measured over; the autocorrelation at a period of p bins is
    // Σ P_k cos(2πk / p), θ = 2π / p.
    const double freqBins = freq / hzPerBin;
    const int from = std::max(1, static_cast<int>(std::ceil(0.5 * freqBins)));
    const int to = std::min(nFrames / 2 - 1, static_cast<int>((kMaxHarmonics + 0.5) * freqBins));
    if (to <= from)
        return 0.0;
    // A grid on which the highest bin turns a quarter of a cycle a step finds the highest peak
    // (the power of the lower harmonics makes it many steps wide).
    const double centre = 2.0 * std::numbers::pi / freqBins;
    const double reach = kSemitoneSpread * centre;
    const int steps =
        std::max(2, static_cast<int>(std::ceil(2.0 * reach / (0.5 * std::numbers::pi / to))));
    const double spacing = 2.0 * reach / steps;
    int best = 0;
    double bestValue = -std::numeric_limits<double>::infinity();
    for (int i = 0; i <= steps; i++) {
        const double value = autocorrelation(centre - reach + i * spacing, from, to);
        if (value > bestValue) {
            bestValue = value;
            best = i;
        }
    }
    const double atZero = autocorrelation(0.0, from, to);
    if (!(atZero > 0.0))
        return 0.0;
    similarity = bestValue / atZero;
    if (best == 0 || best == steps)
        return 0.0;
    if (atFreq != nullptr)
        *atFreq = autocorrelation(centre, from, to) / atZero;
    // Near its top the autocorrelation is a parabola: its vertex through the best point and two
    // either side, a quarter as far apart each round.
    double theta = centre - reach + best * spacing;
    double value = bestValue;
    double step = spacing;
    for (int round = 0; round < 3; round++) {
        const double below = autocorrelation(theta - step, from, to);
        const double above = autocorrelation(theta + step, from, to);
        const double curvature = below - 2.0 * value + above;
        if (curvature < 0.0)
            theta += std::clamp(0.5 * step * (below - above) / curvature, -step, step);
        value = autocorrelation(theta, from, to);
        step *= 0.25;
    }
    similarity = std::max(similarity, value / atZero);
    return 2.0 * std::numbers::pi / theta * hzPerBin;
}

bool PitchRefinerOC::holdsItsLevel() const
{
    const int half = nFrames / 2;
    double first = 0.0;
    double second = 0.0;
    for (int i = 0; i < half; i++) {
        first += transformed[i] * transformed[i];
        second += transformed[half + i] * transformed[half + i];
    }
    return std::max(first, second) <= kLevelChange * std::min(first, second);
}

double PitchRefinerOC::pitchOf(const Measurement &m) const
{
    if (!(lobeSpread(m) >= kLayeredSpread))
        return firstPartial(m);
    const double layered = layeredPitch(m, 0.0, false);
    return layered > 0.0 ? layered : m.freq;
}

double PitchRefinerOC::layeredPitch(const Measurement &m, double freqMin, bool mayGoDown) const
{
    // Where the sound repeats at no period near m.freq, how well it does there still says
    // whether it repeats markedly better below: a layered partial can read tens of cents off
    // and lead the harmonic moves to a multiple of the pitch whose harmonics, each pointing
    // apart, they then miss below.
    double similarity = 0.0;
    double atFreq = 0.0;
    const double near = periodicity(m.freq, similarity, &atFreq);
    double pitch = similarity >= kLayeredSimilarity ||
                           (similarity >= kLayeredLeast && similarity - atFreq >= kLayeredClearer &&
                            holdsItsLevel())
                       ? near
                       : 0.0;
    // The autocorrelation is at most its value at no lag: from kLayeredDown below it, no period
    // below can do markedly better.
    for (int divisor = 2; mayGoDown && similarity < 1.0 - kLayeredDown && divisor <= 3; divisor++) {
        if (!(m.freq / divisor >= freqMin))
            continue;
        double lower = 0.0;
        const double below = periodicity(m.freq / divisor, lower);
        if (below > 0.0 && lower >= kLayeredSimilarity && lower - similarity >= kLayeredDown) {
            pitch = below;
            similarity = lower;
        }
    }
    return pitch;
}

bool PitchRefinerOC::measureBeside(int side, double freq, Measurement &beside)
{
    const int half = nFrames / 2;
    const auto to = besideSamples.begin();
    if (side == 0 && before != nullptr) {
        std::copy(before, before + half, to);
        std::copy(segment, segment + half, to + half);
    } else if (side == 1 && after != nullptr) {
        std::copy(segment + half, segment + nFrames, to);
        std::copy(after, after + half, to + half);
    } else {
        return false;
    }
    transform(besideSamples.data(), freq / hzPerBin >= kWideSpacingBins ? kBlackmanHarris : kHann);
    beside = measure(freq);
    return true;
}

bool PitchRefinerOC::besideIsOctaveAbove(double freq)
{
    bool above = false;
    for (int side = 0; side < 2; side++) {
        Measurement beside;
        if (!measureBeside(side, freq, beside))
            continue;
        if (!(beside.used > 0 && beside.power >= kHeldPower * strongest && holdsStrongest(beside)))
            continue;
        // The candidate's own note held beside the segment, its odd harmonics weak but there
        // (or layers that beat, fading them for a moment), or its fundamental plain: an octave
        // above on the other side is another note.
        if ((beside.oddShare >= kFaintOddShare && beside.oddShare < kBesideOddShare) ||
            beside.powerOf[0] >= kBesideFundamental * strongest)
            return false;
        above = above || (beside.oddShare < kFaintOddShare &&
                          !(beside.powerOf[0] >= kBesideHeldFundamental * strongest));
    }
    return above;
}

bool PitchRefinerOC::besideHoldsFundamental(double freq)
{
    bool held = false;
    for (int side = 0; side < 2; side++) {
        Measurement beside;
        if (!measureBeside(side, freq, beside))
            continue;
        if (!(beside.used > 0 && holdsStrongest(beside) &&
              beside.powerOf[0] >= kConsensusPower * strongest))
            return false;
        held = true;
    }
    return held;
}

double PitchRefinerOC::steadyBeside(double near, double estimate, bool blended)
{
    double steady[2] = {0.0, 0.0};
    for (int side = 0; side < 2; side++) {
        Measurement beside;
        if (!measureBeside(side, near, beside))
            continue;
        if (beside.used > 0 && holdsStrongest(beside) &&
            std::abs(beside.freq / near - 1.0) < kStartSpread &&
            goodnessOf(beside) >= kSteadyGoodness)
            steady[side] = pitchOf(beside);
    }
    if (steady[0] > 0.0 && steady[1] > 0.0) {
        const double apart = std::abs(steady[0] / steady[1] - 1.0);
        const double both = std::sqrt(steady[0] * steady[1]);
        return blended && apart < kSidesAgree &&
                       std::abs(both / estimate - 1.0) > kEdgePull + 0.5 * apart
                   ? both
                   : 0.0;
    }
    for (int side = 0; side < 2; side++)
        if (steady[side] > 0.0 && std::abs(steady[side] / estimate - 1.0) > kEdgePull)
            return steady[side];
    return 0.0;
}

double PitchRefinerOC::loudestHeld(const Measurement &m)
{
    if (before == nullptr || after == nullptr)
        return 0.0;
    int loudest = 0;
    double voting = 0.0;
    for (int h = 1; h <= kConsensusHarmonics; h++) {
        const double power = m.powerOf[h - 1];
        if (power >= kConsensusPower * strongest)
            voting += power;
        if (loudest == 0 || power > m.powerOf[loudest - 1])
            loudest = h;
    }
    const double own = m.binOf[loudest - 1] / loudest;
    if (!(voting > 0.0 && m.powerOf[loudest - 1] >= kLoudestShare * voting) ||
        !(std::abs(own * hzPerBin / m.freq - 1.0) >= kAgreement))
        return 0.0;
    // m was measured under the present window, which a move up may have changed from the
    // refinement's first: the segment is transformed back under it.
    double window[kTaps + 1];
    std::copy(std::begin(coefficients), std::end(coefficients), std::begin(window));
    double read[2] = {0.0, 0.0};
    for (int side = 0; side < 2; side++) {
        Measurement beside;
        if (measureBeside(side, own * hzPerBin, beside) && beside.powerOf[loudest - 1] > 0.0)
            read[side] = beside.binOf[loudest - 1] / loudest;
    }
    transform(segment, window);
    const bool held = read[0] > 0.0 && read[1] > 0.0 && std::abs(read[0] / own - 1.0) < kBorneOut &&
                      std::abs(read[1] / own - 1.0) < kBorneOut &&
                      std::abs(read[1] / read[0] - 1.0) < kHeldAcross;
    return held ? m.meanOfAll(kPredictingPower * strongest) * hzPerBin : 0.0;
}

double PitchRefinerOC::refine(double freq, double freqMin, double freqMax)
{
    harmonicsUsed = 0;
    if (nFrames == 0 || segment == nullptr || !(freq > 0.0) || !std::isfinite(freq))
        return freq;
    goodness = 0.0;
    const double(&window)[kTaps + 1] =
        freq / hzPerBin >= kWideSpacingBins ? kBlackmanHarris : kHann;
    transform(segment, window);
    Measurement m = measure(freq);
    bool moved = false;
    bool movedUp = false;
    // The strongest partial is a harmonic of the pitch, whatever else is: a candidate whose
    // harmonics miss it (the search led off by noise peaks) gives way to the partial itself,
    // and the moves below find which harmonic it is.
    if (m.used == 0 || !holdsStrongest(m)) {
        const double strongestHz = binOf(strongestBin) * hzPerBin;
        double partial = strongestHz;
        while (partial >= freqMax)
            partial *= 0.5;
        // A search that took the octave or twelfth above the pitch misses every harmonic that
        // is no multiple of it, the strongest among them where a formant lifts one (a voice's
        // fifth): the candidate below whose series holds the strongest partial is the pitch.
        Measurement own;
        bool below = false;
        for (int divisor = 2; divisor <= 3; divisor++) {
            const double lower = freq / divisor;
            const auto h = static_cast<int>(std::lround(strongestHz / lower));
            if (!(lower >= freqMin) || h < 1 || h > kMaxHarmonics || h % divisor == 0 ||
                !(std::abs(strongestHz / (h * lower) - 1.0) < kStartSpread))
                continue;
            // From the strongest partial itself: the search's pitch may be tens of cents off,
            // enough for the harmonics of layered voices to agree on another layer.
            const Measurement series = measure(strongestHz / h);
            if (series.used > 0 && holdsStrongest(series)) {
                own = series;
                partial = series.freq;
                below = true;
                break;
            }
        }
        if (!below)
            own = measure(partial);
        bool neighbour = false;
        // Within a semitone of a harmonic of the search's pitch, the partial may still be that
        // harmonic, pulled off for a segment by voices that beat: it is, where the series it
        // implies holds real harmonics besides it. A lone partial's implied series holds noise.
        const auto h = static_cast<int>(std::lround(strongestHz / freq));
        if (!below && h >= 2 && h <= kMaxHarmonics && strongestHz / h >= freqMin &&
            std::abs(strongestHz / (h * freq) - 1.0) < kSemitoneSpread) {
            const Measurement series = measure(strongestHz / h);
            neighbour = series.used > 0 && m.used > 0 && m.power >= kOwnSeriesShare * series.power;
            if (!neighbour && series.used > 0 &&
                series.power - series.powerOf[h - 1] >= kSeriesBeside * strongest) {
                own = series;
                partial = strongestHz / h;
            }
        }
        if (!neighbour && own.used > 0 && partial >= freqMin) {
            m = own;
            moved = true;
        }
    }
    if (m.used == 0)
        return freq;

    // Up while the power is all at multiples of some harmonic: a sine or a nearly pure tone
    // read at a subharmonic (the search's goodness favours several peaks over one).
    for (int step = 0; step < 2; step++) {
        // The greatest factor whose multiple stays below freqMax.
        const int most =
            static_cast<int>(std::min<double>(kMaxFactor, std::ceil(freqMax / m.freq) - 1.0));
        int factor = m.commonFactor(kUpShare, kLoneHarmonic * strongest, most);
        // No fundamental and faint odd harmonics: the octave above (a reed's attack, or a
        // note's release, lays weak partials halfway between the note's). Likewise faint
        // harmonics off the multiples of three: the twelfth above (a slur's other note lays a
        // few of its partials near them).
        const bool noFundamental = m.freq / hzPerBin >= 2.0 &&
                                   !(m.powerOf[0] >= kFaintFundamental * strongest) &&
                                   !(powerNear(m.freq / hzPerBin) >= kFaintNear * strongest);
        if (factor < 2 && most >= 2 && noFundamental && m.oddShare < kFaintOddShare) {
            factor = 2;
            // Unless faint odd harmonics are there and the note on both sides has its
            // fundamental: a vibrato through the body's resonances can carry a weak fundamental
            // tens of cents off for a segment and thin the odd harmonics with it. A reed's
            // attack, or a leap to the octave above, leaves none on one side.
            if ((before != nullptr || after != nullptr) && m.oddShare > 0.0) {
                const bool own = besideHoldsFundamental(m.freq);
                transform(segment, window);
                if (own)
                    break;
            }
        } else if (factor < 2 && most >= 3 && noFundamental && m.otherShare < kFaintOddShare)
            factor = 3;
        if (factor < 2)
            break;
        const Measurement up = measure(factor * m.freq);
        if (up.used == 0)
            break;
        m = up;
        moved = true;
        movedUp = true;
    }
    // Down when the octave (twelfth) below has real harmonics between ours. Not after a move
    // up, whose candidate was just found empty there. Twice over, as far as a strongest partial
    // at the fourth or sixth harmonic.
    for (int round = 0; !movedUp && round < 2; round++) {
        bool wentDown = false;
        for (int divisor = 2; divisor <= 3; divisor++) {
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
                wentDown = true;
            }
        }
        if (!wentDown)
            break;
    }
    // Halfway partials at the segment's edge: the note's steady part beside it decides.
    if (!movedUp && (before != nullptr || after != nullptr) && m.oddShare < kBesideOddShare &&
        !(m.powerOf[0] >= kBesideFundamental * strongest) && 2.0 * m.freq < freqMax) {
        const double low = m.freq;
        const bool up = besideIsOctaveAbove(low);
        transform(segment,
                  up && 2.0 * low / hzPerBin >= kWideSpacingBins ? kBlackmanHarris : window);
        if (up) {
            const Measurement above = measure(2.0 * low);
            if (above.used > 0) {
                m = above;
                moved = true;
            }
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
    // A stiff string's partials are stretched, one partial each; layers that beat (a choir) pull
    // each partial their own way, which can pose as a stretch, and their lobes point apart.
    const bool blended = lobeSpread(m) >= kLayeredSpread;
    // A nearly pure tone whose loudest partial the start left out (see kLoudestShare).
    if (!blended) {
        const double all = loudestHeld(m);
        if (all >= freqMin && all < freqMax)
            m.freq = all;
    }
    harmonicsUsed = m.used;
    goodness = goodnessOf(m);
    const double pitch = blended ? m.freq : firstPartial(m);
    double layered = blended ? layeredPitch(m, freqMin, !movedUp) : 0.0;
    if (!(layered >= freqMin && layered < freqMax))
        layered = 0.0;
    // Two notes at a slurred change blend in each lobe as layers do, and the period reads
    // between them: the sides are measured near the harmonics' reading, and decide where the
    // estimate, layered or not, was pulled off the search's.
    const double estimate = layered > 0.0 ? layered : m.freq;
    if ((before != nullptr || after != nullptr) &&
        (moved || std::abs(estimate / freq - 1.0) > kEdgePull)) {
        const double steady = steadyBeside(m.freq, estimate, blended);
        if (steady >= freqMin && steady < freqMax)
            return steady;
    }
    if (layered > 0.0)
        return layered;
    return pitch >= freqMin && pitch < freqMax ? pitch : m.freq;
}

} // namespace quorval
