#include "analysis/FFTOC.h"

#include "analysis/Check.h"
#include "analysis/VolumeResultOC.h"

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
    return true;
}

void FFTOC::compute(const double *x)
{
    QUORVAL_CHECK(n > 0);
    Complex *z = cArray.data();
    const std::int32_t *order = scramble.data();
    const Complex *ws = cWs.data();

    // Load in bit-reversed order.
    for (int i = 0; i < n; i++)
        cSet(&z[order[i]], x[2 * i], x[2 * i + 1]);

    // Decimation-in-time passes, in place, unscaled. The butterflies of one pass are
    // independent; walking each group in turn (rather than each twiddle across all groups)
    // gives the same numbers and keeps the working lines in cache for large n.
    int passes = 0;
    for (int half = 1; passes < logN; half *= 2, passes++) {
        const int span = 2 * half;
        const int step = n / span;
        for (int g = 0; g < n; g += span) {
            Complex *top = z + g;
            Complex *bottom = z + g + half;
            for (int j = 0; j < half; j++) {
                Complex t;
                cMultiply(&t, &ws[j * step], &bottom[j]);
                cSubtract(&bottom[j], &top[j], &t);
                cAdd(&top[j], &top[j], &t);
            }
        }
    }

    // Unpack the n-point complex transform into the 2n-point real spectrum.
    const Complex *wrs = cWrs.data();
    double *out = result.data();
    for (int k = 0; k < n; k++) {
        Complex a;
        Complex b;
        Complex c;
        Complex e;
        cComplement(&a, &z[(n - k) & (n - 1)]); // (n - k) mod n, n a power of two
        cAdd(&b, &z[k], &a);
        cSubtract(&c, &z[k], &a);
        cMultiply(&e, &wrs[k], &c);
        cAdd(&e, &b, &e);
        out[k] = cModulus(&e) * 0.5;
    }
    out[n] = std::fabs(z[0].re - z[0].im);
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
