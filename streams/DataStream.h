#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

namespace quorval {

// An index-addressed sequence with a valid index range and a mapping of index to axis value
// (seconds, or hertz for the spectrum).
//
// Fields ending in _D, and every method ending in _D, belong to the "data" queue: only code
// running there may touch them. The public extent queries make a synchronous call onto the data
// queue and run the internal form there; they must not be called from the data queue itself.
// Subclasses override the internal forms where their extent is not the plain index range.
//
// Streams are shared (std::shared_ptr), so that work posted to a queue keeps its stream alive.
class DataStream : public std::enable_shared_from_this<DataStream>
{
public:
    // xScale: axis units per index (> 0 for a usable stream); overlap: index offset, so that
    // axis value t lies at index floor(t / xScale - overlap).
    DataStream(double xScale, double overlap);
    virtual ~DataStream() = default;
    DataStream(const DataStream &) = delete;
    DataStream &operator=(const DataStream &) = delete;

    // Bumped by the owner whenever the content is replaced or re-derived: a different value
    // means that what a dependant cached is stale. Any thread.
    std::atomic<std::int64_t> serial{0};
    double xScale;
    double overlap;

    // Internal forms, data queue only.
    [[nodiscard]] virtual std::int64_t minimumIndex_D() const { return minIndex_D; }
    [[nodiscard]] virtual std::int64_t maximumIndex_D() const { return maxIndex_D; }
    [[nodiscard]] virtual double minimumX_D() const;
    [[nodiscard]] virtual double maximumX_D() const;
    // maximumX_D() - minimumX_D(), the maximum taken first.
    [[nodiscard]] virtual double xSpan_D() const;

    // Public forms, any thread but the data queue.
    [[nodiscard]] std::int64_t minimumIndex() const;
    [[nodiscard]] std::int64_t maximumIndex() const;
    [[nodiscard]] double minimumX() const;
    [[nodiscard]] double maximumX() const;
    [[nodiscard]] double xSpan() const;

protected:
    std::int64_t minIndex_D = 0; // first valid index
    std::int64_t maxIndex_D = 0; // one past the last valid index
};

// A stream of doubles with a nominal value range, which the display scales a trace to.
class DoubleStream : public DataStream
{
public:
    DoubleStream(double xScale, double overlap, double minNominalY, double maxNominalY)
        : DataStream(xScale, overlap), minNominalY(minNominalY), maxNominalY(maxNominalY)
    {
    }

    double minNominalY;
    double maxNominalY;
};

} // namespace quorval
