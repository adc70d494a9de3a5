#include "streams/ResultStream.h"

#include "streams/Quorval.h"

#include <gtest/gtest.h>

#include <memory>

namespace quorval {
namespace {

std::shared_ptr<ResultStream> makeStream(std::int64_t size)
{
    return std::make_shared<ResultStream>(size, 0.5, 0.0, 0.0, 1.0);
}

struct Range
{
    std::int64_t min;
    std::int64_t max;
    bool operator==(const Range &) const = default;
};

Range rangeOf(const ResultStream &stream)
{
    return Quorval::dataQueue().sync([&stream] {
        return Range{stream.minimumIndex_D(), stream.maximumIndex_D()};
    });
}

TEST(ResultStream, freshStreamAnswersNoValueAndGrowsAsValuesArrive)
{
    auto stream = makeStream(8);
    for (std::int64_t i : {-1, 0, 1, 7, 8})
        EXPECT_EQ(stream->valueAt(i), -1.0);
    EXPECT_EQ(stream->xSpan(), 0.0);

    stream->store(60.5, 0);
    EXPECT_EQ(rangeOf(*stream), (Range{0, 1}));
    EXPECT_EQ(stream->valueAt(0), 60.5);
    for (std::int64_t i = 1; i < 8; ++i)
        stream->store(60.0 + static_cast<double>(i), i);
    EXPECT_EQ(rangeOf(*stream), (Range{0, 8}));
    EXPECT_DOUBLE_EQ(stream->xSpan(), 4.0);
    EXPECT_DOUBLE_EQ(stream->maximumX(), 4.0);

    // A full ring moves forward: index 8 takes index 0's slot.
    stream->store(70.0, 8);
    EXPECT_EQ(rangeOf(*stream), (Range{1, 9}));
    EXPECT_EQ(stream->valueAt(0), -1.0);
    EXPECT_EQ(stream->valueAt(8), 70.0);
    EXPECT_EQ(stream->valueAt(1), 61.0);
    EXPECT_DOUBLE_EQ(stream->minimumX(), 0.5);
}

TEST(ResultStream, storingPastTheEndClearsTheGapAfterWritingTheValue)
{
    auto stream = makeStream(8);
    for (std::int64_t i = 0; i < 3; ++i)
        stream->store(50.0, i);
    stream->store(55.0, 5);
    EXPECT_EQ(rangeOf(*stream), (Range{0, 6}));
    EXPECT_EQ(stream->valueAt(3), 0.0);
    EXPECT_EQ(stream->valueAt(4), 0.0);
    EXPECT_EQ(stream->valueAt(5), 55.0);
    EXPECT_EQ(stream->valueAt(2), 50.0);

    // A jump of a whole ring or more clears the new value's own slot too: computed again later.
    auto small = makeStream(4);
    for (std::int64_t i = 0; i < 3; ++i)
        small->store(50.0, i);
    small->store(65.0, 10);
    EXPECT_EQ(rangeOf(*small), (Range{7, 11}));
    EXPECT_EQ(small->valueAt(10), 0.0);

    // Overwriting inside the range leaves the range alone.
    stream->store(-1.0, 1);
    EXPECT_EQ(rangeOf(*stream), (Range{0, 6}));
    EXPECT_EQ(stream->valueAt(1), -1.0);
}

TEST(ResultStream, backgroundStoresArriveInOrderBeforeLaterReads)
{
    auto stream = makeStream(1000);
    Quorval::calcQueue().sync([&stream] {
        for (std::int64_t i = 0; i < 1000; ++i)
            stream->storeInBackground(static_cast<double>(i) + 1.0, i);
        stream->storeInBackground(-1.0, 3); // a later store wins
    });
    EXPECT_EQ(rangeOf(*stream), (Range{0, 1000}));
    EXPECT_EQ(stream->valueAt(999), 1000.0);
    EXPECT_EQ(stream->valueAt(3), -1.0);
}

} // namespace
} // namespace quorval
