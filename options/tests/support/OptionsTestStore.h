#pragma once

#include "options/FollowUps.h"

#include <QCoreApplication>
#include <QString>

#include <gtest/gtest.h>

#include <functional>
#include <memory>

namespace quorval {

// The temporary directory that holds the tests' per-user ("user") and system-wide ("system")
// configuration folders for the whole run.
QString testStoreRoot();

// Removes every stored option, so a test starts from the defaults.
void clearTestStore();

// Makes the run's application object (QCoreApplication, or QApplication for widget tests).
using ApplicationMaker = std::function<std::unique_ptr<QCoreApplication>(int &argc, char **argv)>;

// The body of a test main: points the per-user and system-wide configuration and the working
// files at temporary folders, makes the application and runs every test.
int runTestsInPrivateStore(int &argc, char **argv, const ApplicationMaker &makeApplication);

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
