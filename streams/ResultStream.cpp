#include "streams/ResultStream.h"

#include "analysis/Check.h"
#include "streams/Quorval.h"

#include <algorithm>
#include <memory>

namespace quorval {

ResultStream::ResultStream(std::int64_t size, double xScale, double overlap, double minNominalY,
                           double maxNominalY)
    : DoubleStream(xScale, overlap, minNominalY, maxNominalY), size(size),
      data_D(static_cast<std::size_t>(std::max<std::int64_t>(size, 0)), 0.0)
{
    QUORVAL_CHECK(size >= 0);
}

std::int64_t ResultStream::slotOf(std::int64_t i) const
{
    QUORVAL_CHECK(size > 0);
    const std::int64_t slot = i % size;
    return slot < 0 ? slot + size : slot;
}

double ResultStream::valueAt_D(std::int64_t i) const
{
    QUORVAL_CHECK(size > 0);
    if (i < minIndex_D || i >= maxIndex_D)
        return -1.0;
    return data_D[static_cast<std::size_t>(slotOf(i))];
}

double ResultStream::valueAt(std::int64_t i) const
{
    return Quorval::dataQueue().sync([this, i] { return valueAt_D(i); });
}

void ResultStream::store_D(double v, std::int64_t i)
{
    data_D[static_cast<std::size_t>(slotOf(i))] = v;
    if (i < maxIndex_D)
        return;
    if (i - maxIndex_D >= size) {
        // Every slot lies in the gap, the one just written included.
        std::fill(data_D.begin(), data_D.end(), 0.0);
    } else {
        for (std::int64_t j = maxIndex_D; j < i; ++j)
            data_D[static_cast<std::size_t>(slotOf(j))] = 0.0;
    }
    maxIndex_D = i + 1;
    minIndex_D = std::max<std::int64_t>(0, i + 1 - size);
}

void ResultStream::store(double v, std::int64_t i)
{
    Quorval::dataQueue().sync([this, v, i] { store_D(v, i); });
}

void ResultStream::storeInBackground(double v, std::int64_t i)
{
    auto self = std::static_pointer_cast<ResultStream>(shared_from_this());
    Quorval::dataQueue().async([self, v, i] { self->store_D(v, i); });
}

} // namespace quorval
