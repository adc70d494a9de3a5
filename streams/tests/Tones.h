#pragma once

#include "analysis/tests/support/TestSignals.h"

#include <vector>

namespace quorval::test {

// A tone at a note number, seconds long; shape gives everything but the pitch (by default the test
// signals' harmonic timbre).
inline std::vector<double> toneAt(double note, double seconds, testsignals::Tone shape = {})
{
    shape.freqHz = testsignals::noteToHz(note);
    return testsignals::tone(shape, static_cast<int>(seconds * shape.sampleRate));
}

// a followed by b.
inline std::vector<double> joined(std::vector<double> a, const std::vector<double> &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

} // namespace quorval::test
