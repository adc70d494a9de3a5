#pragma once

#include "streams/DataStream.h"

#include <cstdint>
#include <vector>

namespace quorval {

// A ring of computed doubles addressed by index: index i lives in slot i mod size. The ring holds
// at most `size` consecutive indices; storing past the end moves the valid range forward.
//
// Values: -1.0 means no value (also the answer outside the valid range); 0.0 in a slot means
// not computed yet (new slots are cleared to 0). A size of 0 is a broken invariant when used.
class ResultStream : public DoubleStream
{
public:
    ResultStream(std::int64_t size, double xScale, double overlap, double minNominalY,
                 double maxNominalY);

    // The ring's length, fixed at creation.
    const std::int64_t size;

    // The value at index i, or -1.0 outside [minIndex, maxIndex). Data queue only.
    [[nodiscard]] double valueAt_D(std::int64_t i) const;
    // The same through a synchronous call onto the data queue; not from the data queue.
    [[nodiscard]] double valueAt(std::int64_t i) const;

    // Stores v at index i (i >= 0). Storing at or past maxIndex moves the range to end at i + 1,
    // clearing the slots of any skipped indices to 0. The value is written before that gap is
    // cleared, so after a jump of a whole ring or more it reads back as 0 and is computed again
    // later. Storing below minIndex overwrites another index's slot: callers must not.
    // Data queue only.
    void store_D(double v, std::int64_t i);
    // store_D through a synchronous call onto the data queue; not from the data queue.
    void store(double v, std::int64_t i);
    // Posts store_D onto the data queue and returns at once: the calculation's only write path,
    // which never blocks it. Any thread; the stream stays alive until the store has run.
    void storeInBackground(double v, std::int64_t i);

protected:
    [[nodiscard]] std::int64_t slotOf(std::int64_t i) const;

    std::vector<double> data_D; // the ring, size slots
};

} // namespace quorval
