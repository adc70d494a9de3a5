#pragma once

#include "analysis/WideVectors.h"

#include <cmath>
#include <cstdint>
#include <vector>

namespace quorval {

class VolumeResultOC;

// Magnitude spectrum of one segment of real samples: a fixed-size, table-driven
// radix-2 decimation-in-time FFT (Cooley and Tukey, 1965). The 2n real samples are packed as n
// complex values, transformed with an n-point complex FFT, and unpacked into the n + 1
// magnitudes of the 2n-point real DFT (the "two for one" real-input trick, e.g. Brigham,
// "The Fast Fourier Transform", 1974, ch. 10).
//
// Sizes: n = 2^logN complex points, logN 0 .. 30; a segment is 2n real samples; result[k] is
// the unnormalised magnitude |F(k)| at k × sampleRate / (2n) Hz for k = 0 .. n (bin n is the
// Nyquist frequency). No window is applied here.
//
// Tables are built once by setupWithLogN(); compute() allocates nothing and uses no
// trigonometry. The temporaries of the passes and of the unpacking are local to each call
// (not shared between objects), so different objects may transform on
// different threads at the same time. Threading: one thread at a time per object.
class FFTOC
{
public:
    // A complex value: real part, then imaginary part.
    struct Complex
    {
        double re;
        double im;
    };

    FFTOC() = default;

    // Sizes and fills the tables for n = 2^logN (n = 1 when logN < 1). Always returns true.
    // Calling it again resizes the object; pointers from getResult() are then invalid.
    // A logN above 30 (n beyond a signed 32-bit count) is a broken invariant.
    bool setupWithLogN(int logN);

    // Transforms the 2n doubles at x, read as n pairs (x[2i], x[2i + 1]), into result.
    // Allocation-free. Requires setupWithLogN() first.
    void compute(const double *x);
    // The same transform for a caller that reads only getPacked(): the packed values are those
    // compute() leaves, to the last bit, and the magnitudes of getResult() are left as they were.
    // Allocation-free. Requires setupWithLogN() first.
    void computePacked(const double *x);

    // Objects run the transform two butterflies at a time where the processor can
    // (wideVectorsAvailable()). Switching it off gives the same numbers more slowly: a test
    // compares them.
    void setWideVectors(bool on) { wideVectors = on && wideVectorsAvailable(); }

    [[nodiscard]] int getN() const { return n; }
    // The n + 1 magnitudes of the last transform (zero before the first).
    [[nodiscard]] const double *getResult() const { return result.data(); }
    // The n-point complex transform of the last compute() before unpacking, in bin order: z[k]
    // of the samples read as n complex values (zero before the first).
    [[nodiscard]] const Complex *getPacked() const { return cArray.data(); }
    // result[k], k in 0 .. n.
    [[nodiscard]] double getValue(int k) const;

    // Sets result's min and max to the least and greatest of result[start .. start + count - 1],
    // each rounded to single precision: the running values are floats, ample for a range drawn
    // on screen, and the ranges drawn stay what they have always been.
    // A count below 1 reports min = +infinity and max = -infinity. rms is not touched.
    // The range must lie within 0 .. n.
    void getRange(int start, int count, VolumeResultOC &volumeResult) const;

    // Complex helpers: each writes into its first argument, which may alias an operand.
    static void cSet(Complex *c, double real, double imag)
    {
        c->re = real;
        c->im = imag;
    }
    // c = a + b
    static void cAdd(Complex *c, const Complex *a, const Complex *b)
    {
        cSet(c, a->re + b->re, a->im + b->im);
    }
    // c = a - b
    static void cSubtract(Complex *c, const Complex *a, const Complex *b)
    {
        cSet(c, a->re - b->re, a->im - b->im);
    }
    // c = a × b = (ar·br − ai·bi, br·ai + ar·bi)
    static void cMultiply(Complex *c, const Complex *a, const Complex *b)
    {
        cSet(c, a->re * b->re - a->im * b->im, b->re * a->im + a->re * b->im);
    }

private:
    void transform(const double *x);
    void transformWide(const double *x);
    void transformNarrow(const double *x);
    void transformPacked(const double *x);
    void transformPackedWide(const double *x);
    void transformPackedNarrow(const double *x);
    // Bit-reversed load fused with the first two passes (n >= 4, finite values only).
    void loadWithFirstPasses(const double *x);
    // The passes after the first `done` ones.
    void runPasses(int done);
    // The same in paired form (finite values only).
    void runPairedPasses(int done);
    // Turns cArray into the n + 1 magnitudes of result.
    void unpack();
    // Whether every value of result is finite.
    [[nodiscard]] bool allFinite() const;
    // Whether every value of cArray is finite and small enough that no magnitude overflows.
    [[nodiscard]] bool packedModerate() const;

    int n = 0;
    int logN = 0;
    std::vector<double> result;         // n + 1 magnitudes of the last transform
    std::vector<Complex> cArray;        // working array, bit-reversed order before the passes
    std::vector<std::int32_t> scramble; // bit-reversal permutation
    std::vector<Complex> cWs;           // twiddle factors e^(−2πik/n), n/2 used
    std::vector<Complex> cWrs;          // unpacking factors −i·e^(−iπk/n)
    std::vector<Complex> mirrored;      // z[(n − k) mod n] at k, while unpacking
    std::vector<double> wProducts;      // (re, re) of each pass's twiddles in turn
    std::vector<double> wCrossed;       // (−im, im) of the same
    bool wideVectors = wideVectorsAvailable();
};

} // namespace quorval
