#include "analysis/FFTOC.h"

#include "analysis/VolumeResultOC.h"
#include "analysis/tests/support/ComplexParts.h"
#include "analysis/tests/support/TestSignals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <numbers>
#include <vector>

namespace quorval {
namespace {

// |F(k)| of the 2n-point real DFT of x for k = 0 .. n, in long double from an exact-index
// twiddle table: the reference the fast transform must match.
std::vector<double> naiveMagnitudes(const std::vector<double> &x)
{
    const std::size_t size = x.size();
    const std::size_t n = size / 2;
    std::vector<long double> cosTable(size);
    std::vector<long double> sinTable(size);
    const long double pi = std::numbers::pi_v<long double>;
    for (std::size_t m = 0; m < size; m++) {
        cosTable[m] = std::cos(2.0L * pi * static_cast<long double>(m) / size);
        sinTable[m] = std::sin(2.0L * pi * static_cast<long double>(m) / size);
    }
    std::vector<double> magnitudes(n + 1);
    for (std::size_t k = 0; k <= n; k++) {
        long double re = 0.0L;
        long double im = 0.0L;
        for (std::size_t t = 0; t < size; t++) {
            const std::size_t m = (k * t) % size;
            re += x[t] * cosTable[m];
            im -= x[t] * sinTable[m];
        }
        magnitudes[k] = static_cast<double>(std::sqrt(re * re + im * im));
    }
    return magnitudes;
}

TEST(FFTOC, matchesNaiveDftForEverySizeOnSeededNoise)
{
    for (int logN = 0; logN <= 12; logN++) {
        SCOPED_TRACE(logN);
        FFTOC fft;
        ASSERT_TRUE(fft.setupWithLogN(logN));
        const int n = 1 << logN;
        ASSERT_EQ(fft.getN(), n);
        const std::vector<double> x = testsignals::whiteNoise(1.0, 2 * n, 20240611u + logN);
        fft.compute(x.data());
        const std::vector<double> reference = naiveMagnitudes(x);
        const double scale = *std::max_element(reference.begin(), reference.end());
        ASSERT_GT(scale, 0.0);
        double worst = 0.0;
        for (int k = 0; k <= n; k++)
            worst = std::max(worst,
                             std::fabs(fft.getValue(k) - reference[static_cast<std::size_t>(k)]));
        EXPECT_LT(worst / scale, 1e-9);
    }
}

// The transform done the plain way: bit-reversed load, every pass with its table twiddle (the
// first ones included), then the unpacking. The quicker passes must give these bits exactly.
std::vector<double> plainMagnitudes(const std::vector<double> &x, int logN)
{
    using C = FFTOC::Complex;
    const int n = 1 << logN;
    const double pi = std::numbers::pi;
    std::vector<C> z(static_cast<std::size_t>(n));
    for (int i = 0; i < n; i++) {
        int reversed = 0;
        for (int bit = 0; bit < logN; bit++)
            reversed |= ((i >> bit) & 1) << (logN - 1 - bit);
        z[static_cast<std::size_t>(reversed)] =
            C{x[2 * static_cast<std::size_t>(i)], x[2 * static_cast<std::size_t>(i) + 1]};
    }
    for (int half = 1; half < n; half *= 2) {
        for (int j = 0; j < half; j++) {
            const int k = j * (n / (2 * half));
            const C w{std::cos(2.0 * pi * k / n), -std::sin(2.0 * pi * k / n)};
            for (int g = 0; g < n; g += 2 * half) {
                C &top = z[static_cast<std::size_t>(g + j)];
                C &bottom = z[static_cast<std::size_t>(g + j + half)];
                C t;
                FFTOC::cMultiply(&t, &w, &bottom);
                FFTOC::cSubtract(&bottom, &top, &t);
                FFTOC::cAdd(&top, &top, &t);
            }
        }
    }
    std::vector<double> magnitudes(static_cast<std::size_t>(n) + 1);
    for (int k = 0; k < n; k++) {
        const C wr{-std::sin(pi * k / n), -std::cos(pi * k / n)};
        C a;
        C b;
        C c;
        C e;
        testsignals::cComplement(&a, &z[static_cast<std::size_t>((n - k) % n)]);
        FFTOC::cAdd(&b, &z[static_cast<std::size_t>(k)], &a);
        FFTOC::cSubtract(&c, &z[static_cast<std::size_t>(k)], &a);
        FFTOC::cMultiply(&e, &wr, &c);
        FFTOC::cAdd(&e, &b, &e);
        magnitudes[static_cast<std::size_t>(k)] = testsignals::cModulus(&e) * 0.5;
    }
    magnitudes[static_cast<std::size_t>(n)] = std::fabs(z[0].re - z[0].im);
    return magnitudes;
}

TEST(FFTOC, equalsThePlainTransformToTheLastBitWithNonFiniteAndHugeValues)
{
    std::uint32_t seed = 99;
    const double specials[] = {0.0,
                               std::numeric_limits<double>::infinity(),
                               -std::numeric_limits<double>::infinity(),
                               std::numeric_limits<double>::quiet_NaN(),
                               1e308,
                               1e200,
                               -0.0};
    for (int logN = 0; logN <= 9; logN++) {
        FFTOC fft;
        ASSERT_TRUE(fft.setupWithLogN(logN));
        const std::size_t size = std::size_t{2} << logN;
        for (const double special : specials) {
            SCOPED_TRACE(testing::Message() << "logN " << logN << " value " << special);
            std::vector<double> x =
                testsignals::whiteNoise(30000.0, static_cast<int>(size), seed++);
            // Zeros in places meet the signs of zero the quick passes leave out.
            for (std::size_t i = 0; i < size; i += 3)
                x[i] = special == 0.0 ? special : x[i];
            x[size / 2] = special;
            // A value whose square overflows, alone among zeros: the full transform goes the
            // plain way, whose packed values differ from the quick passes' in signs of zero.
            if (special == 1e200) {
                std::fill(x.begin(), x.end(), -0.0);
                x[0] = special;
            }
            const std::vector<double> plain = plainMagnitudes(x, logN);
            // Both widths of the passes, where the processor has the wide one.
            for (bool wide : {true, false}) {
                fft.setWideVectors(wide);
                fft.compute(x.data());
                for (std::size_t k = 0; k < plain.size(); k++) {
                    const double value = fft.getValue(static_cast<int>(k));
                    if (std::isnan(plain[k]))
                        EXPECT_TRUE(std::isnan(value)) << "bin " << k << " wide " << wide;
                    else
                        EXPECT_EQ(value, plain[k]) << "bin " << k << " wide " << wide;
                }
                // The packed-only transform leaves the packed values of the full one, signs of
                // zero included, whichever way the full one went.
                const std::vector<FFTOC::Complex> packed(fft.getPacked(),
                                                         fft.getPacked() + fft.getN());
                FFTOC packedOnly;
                ASSERT_TRUE(packedOnly.setupWithLogN(logN));
                packedOnly.setWideVectors(wide);
                packedOnly.computePacked(x.data());
                for (std::size_t k = 0; k < packed.size(); k++)
                    for (const auto part : {&FFTOC::Complex::re, &FFTOC::Complex::im}) {
                        const double expected = packed[k].*part;
                        const double value = packedOnly.getPacked()[k].*part;
                        if (std::isnan(expected))
                            EXPECT_TRUE(std::isnan(value)) << "packed " << k << " wide " << wide;
                        else
                            EXPECT_EQ(std::bit_cast<std::uint64_t>(value),
                                      std::bit_cast<std::uint64_t>(expected))
                                << "packed " << k << " wide " << wide;
                    }
            }
        }
    }
}

TEST(FFTOC, negativeSizeIsTakenAsSizeOne)
{
    FFTOC negative;
    ASSERT_TRUE(negative.setupWithLogN(-3));
    EXPECT_EQ(negative.getN(), 1);
}

TEST(FFTOC, getRangeRoundsToSinglePrecision)
{
    FFTOC fft;
    ASSERT_TRUE(fft.setupWithLogN(0));
    const double x[2] = {0.1, 0.0};
    fft.compute(x);
    ASSERT_EQ(fft.getValue(0), 0.1);
    ASSERT_EQ(fft.getValue(1), 0.1);
    VolumeResultOC range;
    range.setRMS(42.0);
    fft.getRange(0, 2, range);
    EXPECT_EQ(range.getMin(), static_cast<double>(0.1f));
    EXPECT_EQ(range.getMax(), static_cast<double>(0.1f));
    EXPECT_EQ(range.getRMS(), 42.0);

    fft.getRange(1, 0, range);
    EXPECT_EQ(range.getMin(), std::numeric_limits<double>::infinity());
    EXPECT_EQ(range.getMax(), -std::numeric_limits<double>::infinity());
    fft.getRange(0, -4, range);
    EXPECT_EQ(range.getMin(), std::numeric_limits<double>::infinity());
}

TEST(FFTOC, getRangeFindsLeastAndGreatestOfTheRange)
{
    FFTOC fft;
    ASSERT_TRUE(fft.setupWithLogN(4));
    std::vector<double> x(32);
    for (int t = 0; t < 32; t++)
        x[static_cast<std::size_t>(t)] = 1.0 + 0.5 * std::cos(std::numbers::pi * 3 * t / 16);
    fft.compute(x.data());
    VolumeResultOC range;
    fft.getRange(2, 5, range); // bins 2..6: bin 3 holds 0.5 × 16 = 8
    EXPECT_FLOAT_EQ(static_cast<float>(range.getMax()), 8.0f);
    EXPECT_LT(range.getMin(), 1e-9);
    fft.getRange(0, 17, range);
    EXPECT_EQ(range.getMax(), static_cast<double>(static_cast<float>(fft.getValue(0))));
}

} // namespace
} // namespace quorval
