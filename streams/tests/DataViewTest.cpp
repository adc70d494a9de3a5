#include "streams/DataView.h"

#include <gtest/gtest.h>

namespace quorval {
namespace {

TEST(DataView, newRangeKeepsAZoomedBandInsideItAndScrollingStaysWithinIt)
{
    DataView view;
    view.setRange(91.0, 55.0); // from nothing: the band is the whole range
    EXPECT_EQ(view.topY, 91.0);
    EXPECT_EQ(view.bottomY, 55.0);

    view.topY = 80.0;
    view.bottomY = 70.0;
    view.setRange(93.0, 53.0); // a zoomed band inside the new range stays
    EXPECT_EQ(view.topY, 80.0);
    EXPECT_EQ(view.bottomY, 70.0);
    EXPECT_EQ(view.maxY, 93.0);
    view.setRange(75.0, 53.0); // no longer inside: the whole range again
    EXPECT_EQ(view.topY, 75.0);
    EXPECT_EQ(view.bottomY, 53.0);

    view.topY = 70.0;
    view.bottomY = 60.0;
    view.scrollY(100.0); // clamped at the top
    EXPECT_EQ(view.topY, 75.0);
    EXPECT_EQ(view.bottomY, 65.0);
    view.scrollY(-100.0); // and at the bottom
    EXPECT_EQ(view.bottomY, 53.0);
    EXPECT_EQ(view.topY, 63.0);
}

} // namespace
} // namespace quorval
