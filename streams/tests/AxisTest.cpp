#include "streams/Axis.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace quorval {
namespace {

TEST(Axis, gridSizesRoundUpToTheNextAllowedSpacing)
{
    struct Case
    {
        double step;
        double time;  // on a time axis
        double plain; // on the frequency or value axis
    };
    const std::vector<Case> cases = {
        {0.0, 0.0, 0.0},          {-3.0, 0.0, 0.0},          {0.1, 0.2, 0.2},
        {0.3, 0.5, 0.5},          {0.06, 0.1, 0.1},          {1.0, 2.0, 2.0},
        {3.0, 4.0, 5.0},          {11.0, 15.0, 20.0},        {16.0, 30.0, 20.0},
        {45.0, 60.0, 50.0},       {61.0, 120.0, 100.0},      {600.0, 600.0, 1000.0},
        {3599.0, 3600.0, 5000.0}, {7200.0, 7200.0, 10000.0}, {250.0, 600.0, 500.0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.step);
        EXPECT_NEAR(timeGridSize(c.step), c.time, 1e-12 * std::max(1.0, c.time));
        EXPECT_NEAR(plainGridSize(c.step), c.plain, 1e-12 * std::max(1.0, c.plain));
        EXPECT_EQ(gridSize(c.step, true), timeGridSize(c.step));
        EXPECT_EQ(gridSize(c.step, false), plainGridSize(c.step));
    }
}

TEST(Axis, labelsKeepTheirOldRoundingAndSuffixes)
{
    struct Case
    {
        double value;
        double step;
        const char *text;
    };
    const std::vector<Case> cases = {
        {0.0, 5.0, "0"},
        {0.25, 0.05, "0"}, // below 1 everything is rounded to whole numbers
        {0.75, 0.05, "1"},
        {-0.4, 0.2, "-0"},
        {12.5, 0.5, "12.5"},
        {-20.0, 10.0, "-20"},
        {7.9, 2.0, "7"}, // whole steps truncate
        {999.9, 0.1, "999.9"},
        {1500.0, 100.0, "1.5k"},
        {-1500.0, 100.0, "-1.5k"},
        {2000.0, 1000.0, "2k"},
        {2500000.0, 500000.0, "2.5M"},
        {3e9, 1e9, "3G"},
        {4e12, 1e12, "4T"},
        {0.0005, 0.0001, "5.000000e-04"},
        {2e15, 1e15, "2.000000e+15"},
    };
    for (const Case &c : cases)
        EXPECT_EQ(axisLabel(c.value, c.step), c.text) << c.value << " at " << c.step;
}

TEST(Axis, rulerLabelsShowTheDecimalsTheSpacingNeeds)
{
    struct Case
    {
        double t;
        double inc;
        const char *text;
        double narrow;
    };
    const std::vector<Case> cases = {
        {0.5, 0.5, "0:00.5", 1.2},       {1.0, 0.5, "0:01.0", 1.2},
        {2.0, 2.0, "0:02", 0.6},         {4.0, 2.0, "0:04", 0.6},
        {0.05, 0.05, "0:00.05", 1.2},    {65.25, 0.25, "1:05.3", 1.2},
        {3725.0, 5.0, "1:02:05", 1.2},   {3725.0, 0.5, "1: 2:05.0", 1.8},
        {7199.9, 0.1, "1:59:59.9", 1.8}, {600.0, 60.0, "10:00", 0.6},
    };
    for (const Case &c : cases) {
        const RulerLabel label = rulerLabel(c.t, c.inc);
        EXPECT_EQ(label.text, c.text) << c.t << " at " << c.inc;
        EXPECT_EQ(label.narrowChars, c.narrow) << c.text;
    }
}

} // namespace
} // namespace quorval
