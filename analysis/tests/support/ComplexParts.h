#pragma once

#include "analysis/FFTOC.h"

#include <cmath>

// The complex helpers only the reference transform of the tests needs.
namespace quorval::testsignals {

// c = conjugate of a
inline void cComplement(FFTOC::Complex *c, const FFTOC::Complex *a)
{
    FFTOC::cSet(c, a->re, -a->im);
}

// √(re² + im²)
inline double cModulus(const FFTOC::Complex *c)
{
    return std::sqrt(c->re * c->re + c->im * c->im);
}

} // namespace quorval::testsignals
