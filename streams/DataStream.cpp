#include "streams/DataStream.h"

#include "streams/Quorval.h"

namespace quorval {

DataStream::DataStream(double xScale, double overlap) : xScale(xScale), overlap(overlap) {}

double DataStream::minimumX_D() const
{
    return xScale * static_cast<double>(minimumIndex_D());
}

double DataStream::maximumX_D() const
{
    return xScale * static_cast<double>(maximumIndex_D());
}

double DataStream::xSpan_D() const
{
    const double maxX = maximumX_D();
    return maxX - minimumX_D();
}

std::int64_t DataStream::minimumIndex() const
{
    return Quorval::dataQueue().sync([this] { return minimumIndex_D(); });
}

std::int64_t DataStream::maximumIndex() const
{
    return Quorval::dataQueue().sync([this] { return maximumIndex_D(); });
}

double DataStream::minimumX() const
{
    return Quorval::dataQueue().sync([this] { return minimumX_D(); });
}

double DataStream::maximumX() const
{
    return Quorval::dataQueue().sync([this] { return maximumX_D(); });
}

double DataStream::xSpan() const
{
    return Quorval::dataQueue().sync([this] { return xSpan_D(); });
}

} // namespace quorval
