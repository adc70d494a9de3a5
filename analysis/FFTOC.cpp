#include "analysis/FFTOC.h"

#include "analysis/Check.h"
#include "analysis/VolumeResultOC.h"
#include "analysis/WideVectors.h"

#include <limits>
#include <numbers>

namespace quorval {

bool FFTOC::setupWithLogN(int newLogN)
{
    QUORVAL_CHECK(newLogN <= 30);
    logN = newLogN < 1 ? 0 : newLogN;
    n = 1 << logN;
    const auto size = static_cast<std::size_t>(n);
    result.assign(size + 1, 0.0);
    cArray.assign(size, Complex{0.0, 0.0});
    cWs.assign(size, Complex{0.0, 0.0});
    cWrs.assign(size, Complex{0.0, 0.0});
    mirrored.assign(size, Complex{0.0, 0.0});
    scramble.assign(size, 0);

    const double pi = std::numbers::pi;
    for (int i = 0; i < n; i++) {
        // Reverse the low logN bits: the bit of weight n/2 gets weight 1, n/4 weight 2, ...
        std::int32_t reversed = 0;
        std::int32_t weight = 1;
        for (int bit = n / 2; bit >= 1; bit /= 2) {
            if ((i & bit) != 0)
                reversed += weight;
            weight *= 2;
        }
        scramble[static_cast<std::size_t>(i)] = reversed;
        cSet(&cWrs[static_cast<std::size_t>(i)], -std::sin(pi * i / n), -std::cos(pi * i / n));
    }
    for (int k = 0; k < n / 2; k++)
        cSet(&cWs[static_cast<std::size_t>(k)], std::cos(2.0 * pi * k / n),
             -std::sin(2.0 * pi * k / n));
    // The same twiddles laid out for paired products, pass by pass in the order the butterflies
    // use them: (re, re) in one table and (-im, im) in the other. The pass with half-span h
    // starts at 2 (h - 1).
    const std::size_t tableSize = size > 1 ? 2 * (size - 1) : 0;
    wProducts.assign(tableSize, 0.0);
    wCrossed.assign(tableSize, 0.0);
    for (std::size_t half = 1; half < size; half *= 2) {
        const std::size_t step = size / (2 * half);
        for (std::size_t j = 0; j < half; j++) {
            const Complex &w = cWs[j * step];
            const std::size_t at = 2 * (half - 1) + 2 * j;
            wProducts[at] = w.re;
            wProducts[at + 1] = w.re;
            wCrossed[at] = -w.im;
            wCrossed[at + 1] = w.im;
        }
    }
    return true;
}

void FFTOC::compute(const double *x)
{
    QUORVAL_CHECK(n > 0);
    if (wideVectors)
        transformWide(x);
    else
        transformNarrow(x);
}

void FFTOC::computePacked(const double *x)
{
    QUORVAL_CHECK(n > 0);
    if (wideVectors)
        transformPackedWide(x);
    else
        transformPackedNarrow(x);
}

// The same transform compiled twice: with AVX2 two butterflies or bins go through each
// instruction, without it one. Neither fuses a product into a sum, so both give the same numbers.
QUORVAL_WIDE void FFTOC::transformWide(const double *x)
{
    transform(x);
}

void FFTOC::transformNarrow(const double *x)
{
    transform(x);
}

QUORVAL_WIDE void FFTOC::transformPackedWide(const double *x)
{
    transformPacked(x);
}

void FFTOC::transformPackedNarrow(const double *x)
{
    transformPacked(x);
}

QUORVAL_INLINE void FFTOC::transformPacked(const double *x)
{
    // transform() keeps the quick passes' values when every magnitude is finite. Values this
    // moderate make every magnitude finite, so the quick values stand without the unpacking;
    // any other input goes through transform() itself, which decides as ever.
    if (logN >= 2) {
        loadWithFirstPasses(x);
        runPairedPasses(2);
        if (packedModerate())
            return;
    }
    transform(x);
}

QUORVAL_INLINE void FFTOC::transform(const double *x)
{
    // The first two passes' twiddle factor is (1, -0): a product with it equals the other
    // factor but for the sign of a zero, which never reaches a magnitude, so the quick passes
    // skip it. That holds while every value stays finite (0 × inf is NaN); a non-finite value
    // anywhere always reaches some magnitude, so a spectrum that is finite throughout proves it,
    // and any other input is transformed again the plain way.
    if (logN >= 2) {
        loadWithFirstPasses(x);
        runPairedPasses(2);
        unpack();
        if (allFinite())
            return;
    }
    Complex *z = cArray.data();
    const std::int32_t *order = scramble.data();
    for (int i = 0; i < n; i++)
        cSet(&z[order[i]], x[2 * i], x[2 * i + 1]);
    runPasses(0);
    unpack();
}

QUORVAL_INLINE void FFTOC::loadWithFirstPasses(const double *x)
{
    // Load in bit-reversed order and do the first two passes, four points at a time. The
    // permutation is its own inverse: point k comes from input pair order[k].
    Complex *z = cArray.data();
    const std::int32_t *order = scramble.data();
    const Complex w = cWs[static_cast<std::size_t>(n / 4)];
    const auto pair = [x](std::int32_t k) { return Complex{x[2 * k], x[2 * k + 1]}; };
    for (int g = 0; g < n; g += 4) {
        const Complex p0 = pair(order[g]);
        const Complex p1 = pair(order[g + 1]);
        const Complex p2 = pair(order[g + 2]);
        const Complex p3 = pair(order[g + 3]);
        // First pass, twiddle (1, -0).
        Complex a0;
        Complex a1;
        Complex a2;
        Complex a3;
        cAdd(&a0, &p0, &p1);
        cSubtract(&a1, &p0, &p1);
        cAdd(&a2, &p2, &p3);
        cSubtract(&a3, &p2, &p3);
        // Second pass: twiddle (1, -0) for the even pair, cWs[n / 4] for the odd one.
        Complex t;
        cMultiply(&t, &w, &a3);
        cAdd(&z[g], &a0, &a2);
        cSubtract(&z[g + 2], &a0, &a2);
        cAdd(&z[g + 1], &a1, &t);
        cSubtract(&z[g + 3], &a1, &t);
    }
}

namespace {

// Decimation-in-time passes after the first `done`, in place, unscaled: calls
// butterfly(top, bottom, k) for every pair with twiddle index k. The butterflies of one pass are
// independent; walking each group in turn (rather than each twiddle across all groups) gives the
// same numbers and keeps the working lines in cache for large n.
template <typename Butterfly>
QUORVAL_INLINE void forEachPass(FFTOC::Complex *z, int n, int logN, int done, Butterfly butterfly)
{
    for (int passes = done, half = 1 << done; passes < logN; half *= 2, passes++) {
        const int span = 2 * half;
        const int step = n / span;
        for (int g = 0; g < n; g += span)
            for (int j = 0; j < half; j++)
                butterfly(z[g + j], z[g + j + half], j * step);
    }
}

} // namespace

QUORVAL_INLINE void FFTOC::runPasses(int done)
{
    const Complex *ws = cWs.data();
    forEachPass(cArray.data(), n, logN, done, [ws](Complex &top, Complex &bottom, int k) {
        Complex t;
        cMultiply(&t, &ws[k], &bottom);
        cSubtract(&bottom, &top, &t);
        cAdd(&top, &top, &t);
    });
}

namespace {

// The butterflies of one group, top[j] with bottom[j] for j < half, each product a sum of two
// paired products (see runPairedPasses()). The four ranges never overlap.
QUORVAL_INLINE void pairedButterflies(FFTOC::Complex *__restrict top,
                                      FFTOC::Complex *__restrict bottom,
                                      const double *__restrict products,
                                      const double *__restrict crossed, int half)
{
    for (int j = 0; j < half; j++) {
        const FFTOC::Complex a = top[j];
        const FFTOC::Complex b = bottom[j];
        const double re = products[2 * j] * b.re + crossed[2 * j] * b.im;
        const double im = products[2 * j + 1] * b.im + crossed[2 * j + 1] * b.re;
        bottom[j] = FFTOC::Complex{a.re - re, a.im - im};
        top[j] = FFTOC::Complex{a.re + re, a.im + im};
    }
}

// Two passes over the groups of four quarters p0..p3 of a span of 4·half: the first pass's
// butterflies (p0, p1) and (p2, p3) with its twiddles, then the next pass's (p0, p2) and
// (p1, p3) with its own, the second half of them for (p1, p3).
QUORVAL_INLINE void
pairedButterflyPairs(FFTOC::Complex *__restrict p0, FFTOC::Complex *__restrict p1,
                     FFTOC::Complex *__restrict p2, FFTOC::Complex *__restrict p3,
                     const double *__restrict products, const double *__restrict crossed,
                     const double *__restrict nextProducts, const double *__restrict nextCrossed,
                     int half)
{
    const auto butterfly = [](FFTOC::Complex &top, FFTOC::Complex &bottom, double wr, double wr2,
                              double wc, double wc2) {
        const FFTOC::Complex a = top;
        const FFTOC::Complex b = bottom;
        const double re = wr * b.re + wc * b.im;
        const double im = wr2 * b.im + wc2 * b.re;
        bottom = FFTOC::Complex{a.re - re, a.im - im};
        top = FFTOC::Complex{a.re + re, a.im + im};
    };
    for (int j = 0; j < half; j++) {
        FFTOC::Complex a0 = p0[j];
        FFTOC::Complex a1 = p1[j];
        FFTOC::Complex a2 = p2[j];
        FFTOC::Complex a3 = p3[j];
        butterfly(a0, a1, products[2 * j], products[2 * j + 1], crossed[2 * j], crossed[2 * j + 1]);
        butterfly(a2, a3, products[2 * j], products[2 * j + 1], crossed[2 * j], crossed[2 * j + 1]);
        butterfly(a0, a2, nextProducts[2 * j], nextProducts[2 * j + 1], nextCrossed[2 * j],
                  nextCrossed[2 * j + 1]);
        const int k = j + half;
        butterfly(a1, a3, nextProducts[2 * k], nextProducts[2 * k + 1], nextCrossed[2 * k],
                  nextCrossed[2 * k + 1]);
        p0[j] = a0;
        p1[j] = a1;
        p2[j] = a2;
        p3[j] = a3;
    }
}

} // namespace

QUORVAL_INLINE void FFTOC::runPairedPasses(int done)
{
    // runPasses() with each product written as a sum of two paired products: re = wr·br + (−wi)·bi
    // is wr·br − wi·bi, and im = wr·bi + wi·br is br·wi + wr·bi, both exactly. (Only the sign of
    // a NaN may differ, and a NaN sends the transform the plain way.) With each pass's twiddles
    // in a row, neighbouring butterflies become vector operations.
    Complex *z = cArray.data();
    int passes = done;
    int half = 1 << done;
    // Two passes at a time while two remain: each four points go through both while they are
    // in registers, the same operations on the same values with half the trips through memory.
    for (; passes + 2 <= logN; passes += 2, half *= 4) {
        const double *products = wProducts.data() + 2 * (half - 1);
        const double *crossed = wCrossed.data() + 2 * (half - 1);
        const double *nextProducts = wProducts.data() + 2 * (2 * half - 1);
        const double *nextCrossed = wCrossed.data() + 2 * (2 * half - 1);
        for (int g = 0; g < n; g += 4 * half)
            pairedButterflyPairs(z + g, z + g + half, z + g + 2 * half, z + g + 3 * half, products,
                                 crossed, nextProducts, nextCrossed, half);
    }
    for (; passes < logN; passes++, half *= 2) {
        const double *products = wProducts.data() + 2 * (half - 1);
        const double *crossed = wCrossed.data() + 2 * (half - 1);
        for (int g = 0; g < n; g += 2 * half)
            pairedButterflies(z + g, z + g + half, products, crossed, half);
    }
}

namespace {

// Bins 0 .. n - 1 of the real spectrum from the complex transform z, its partners z[(n - k) mod n]
// laid out in bin order, and the unpacking factors. The four ranges never overlap.
QUORVAL_INLINE void unpackBins(const FFTOC::Complex *__restrict z,
                               const FFTOC::Complex *__restrict partner,
                               const FFTOC::Complex *__restrict wrs, double *__restrict out, int n)
{
    for (int k = 0; k < n; k++) {
        const FFTOC::Complex a{partner[k].re, -partner[k].im};
        const FFTOC::Complex b{z[k].re + a.re, z[k].im + a.im};
        const FFTOC::Complex c{z[k].re - a.re, z[k].im - a.im};
        const FFTOC::Complex w = wrs[k];
        const FFTOC::Complex e{b.re + (w.re * c.re - w.im * c.im),
                               b.im + (c.re * w.im + w.re * c.im)};
        out[k] = std::sqrt(e.re * e.re + e.im * e.im) * 0.5;
    }
}

} // namespace

QUORVAL_INLINE void FFTOC::unpack()
{
    // Unpack the n-point complex transform into the 2n-point real spectrum. Bin k pairs z[k]
    // with z[(n - k) mod n]: that partner is first laid out in bin order, so that the main loop
    // runs straight through memory and vectorises, square roots included.
    const Complex *z = cArray.data();
    Complex *partner = mirrored.data();
    partner[0] = z[0];
    for (int k = 1; k < n; k++)
        partner[k] = z[n - k];
    unpackBins(z, partner, cWrs.data(), result.data(), n);
    result[static_cast<std::size_t>(n)] = std::fabs(z[0].re - z[0].im);
}

QUORVAL_INLINE bool FFTOC::allFinite() const
{
    // The magnitudes are not negative, so their sum is finite only when each is; an overflowing
    // sum merely sends a finite spectrum the slow way. Four sums keep the adds independent.
    const double *out = result.data();
    double sums[4] = {0.0, 0.0, 0.0, 0.0};
    int k = 0;
    for (; k + 4 <= n + 1; k += 4)
        for (int lane = 0; lane < 4; lane++)
            sums[lane] += out[k + lane];
    for (; k <= n; k++)
        sums[0] += out[k];
    return std::isfinite((sums[0] + sums[1]) + (sums[2] + sums[3]));
}

QUORVAL_INLINE bool FFTOC::packedModerate() const
{
    // A bin's magnitude is at most about five times its inputs' largest part: below 1e150 its
    // square stays far inside the double range. NaN fails the comparison too.
    constexpr double kModerate = 1e150;
    const Complex *z = cArray.data();
    std::uint64_t outside = 0;
    for (int k = 0; k < n; k++)
        outside |= static_cast<std::uint64_t>(!(std::fabs(z[k].re) < kModerate)) |
                   static_cast<std::uint64_t>(!(std::fabs(z[k].im) < kModerate));
    return outside == 0;
}

double FFTOC::getValue(int k) const
{
    QUORVAL_CHECK(k >= 0 && k <= n);
    return result[static_cast<std::size_t>(k)];
}

void FFTOC::getRange(int start, int count, VolumeResultOC &volumeResult) const
{
    float least = std::numeric_limits<float>::infinity();
    float greatest = -std::numeric_limits<float>::infinity();
    if (count >= 1) {
        QUORVAL_CHECK(start >= 0 && start <= n && count <= n + 1 - start);
        for (int i = start; i < start + count; i++) {
            const auto value = static_cast<float>(result[static_cast<std::size_t>(i)]);
            if (value < least)
                least = value;
            if (value > greatest)
                greatest = value;
        }
    }
    volumeResult.setMin(static_cast<double>(least));
    volumeResult.setMax(static_cast<double>(greatest));
}

} // namespace quorval
