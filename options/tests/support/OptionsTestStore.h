#pragma once

#include "options/FollowUps.h"

#include <QString>

#include <gtest/gtest.h>

namespace quorval {

// The temporary directory that holds the tests' per-user ("user") and system-wide ("system")
// configuration folders for the whole run.
QString testStoreRoot();

// Removes every stored option, so a test starts from the defaults.
void clearTestStore();

// A test that starts from an empty store and no follow-up requests counted.
class StoreTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        clearTestStore();
        resetFollowUpCounts();
    }
};

} // namespace quorval
