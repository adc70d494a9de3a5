#include "analysis/Check.h"

#include <gtest/gtest.h>

namespace quorval {
namespace {

int checkedDivide(int a, int b)
{
    QUORVAL_CHECK(b != 0);
    return a / b;
}

TEST(Check, abortsWithConditionFileAndLineWhenBroken)
{
    EXPECT_EQ(checkedDivide(6, 3), 2);
    EXPECT_DEATH(checkedDivide(1, 0), "check failed: b != 0 at .*CheckTest.cpp:[0-9]+");
}

} // namespace
} // namespace quorval
