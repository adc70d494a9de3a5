#include "analysis/FirstGreatest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

namespace quorval {
namespace {

TEST(FirstGreatest, picksTheElementMaxElementPicksAmongTiesNansAndInfinities)
{
    constexpr double inf = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    // Few distinct values, so that ties are common and the greatest often sits in several lanes
    // and in the last few; NaN and the infinities anywhere, in front too.
    const double pool[] = {0.0, -0.0, 1.0, 2.0, 2.0, 3.0, -1.0, inf, -inf, nan};
    std::mt19937 random(20240917u);
    std::uniform_int_distribution<std::size_t> pick(0, std::size(pool) - 1);
    for (int count = 1; count <= 19; count++)
        for (int trial = 0; trial < 400; trial++) {
            std::vector<double> values(static_cast<std::size_t>(count));
            for (double &v : values)
                v = pool[pick(random)];
            const auto expected = std::max_element(values.begin(), values.end()) - values.begin();
            ASSERT_EQ(firstGreatest(values.data(), count), expected)
                << "count " << count << " trial " << trial;
        }
}

} // namespace
} // namespace quorval
