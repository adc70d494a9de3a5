#pragma once

#include "streams/DataStream.h"

#include <cstdint>
#include <vector>

namespace quorval {

// The spectrum of one chosen segment, for the spectrum view: index = frequency bin, x = hertz,
// values in dB relative to a full-scale segment, floored at "dB noise limit" (nominal range that
// limit .. 0). Empty until a spectrum is laid in.
//
// Threading: the values and the extent belong to the data queue; the calculation copies a new
// spectrum in there (setSpectrum_D), so the transform it came from may be reused at once.
class FFTStream : public DoubleStream
{
public:
    // hzPerBin: sample rate / segment length of the segmentation it belongs to.
    FFTStream(double hzPerBin, double dbFloor);

    // Replaces the spectrum by count values in dB and bumps serial. Data queue.
    void setSpectrum_D(const double *values, std::int64_t count);
    // The value of bin i, or the floor outside the extent. Data queue / any other thread.
    [[nodiscard]] double valueAt_D(std::int64_t i) const;
    [[nodiscard]] double valueAt(std::int64_t i) const;

private:
    std::vector<double> spectrum_D;
};

} // namespace quorval
