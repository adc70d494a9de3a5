#include "streams/FFTStream.h"

#include "streams/Quorval.h"

namespace quorval {

FFTStream::FFTStream(double hzPerBin, double dbFloor) : DoubleStream(hzPerBin, 0.0, dbFloor, 0.0) {}

void FFTStream::setSpectrum_D(const double *values, std::int64_t count)
{
    spectrum_D.assign(values, values + count);
    minIndex_D = 0;
    maxIndex_D = count;
    ++serial;
}

double FFTStream::valueAt_D(std::int64_t i) const
{
    if (i < minIndex_D || i >= maxIndex_D)
        return minNominalY;
    return spectrum_D[static_cast<std::size_t>(i)];
}

double FFTStream::valueAt(std::int64_t i) const
{
    return Quorval::dataQueue().sync([this, i] { return valueAt_D(i); });
}

} // namespace quorval
