#include "options/OptionStore.h"
#include "streams/Quorval.h"
#include "streams/tests/Wait.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

#if defined(__SANITIZE_THREAD__)
// ThreadSanitizer takes its suppressions from TSAN_OPTIONS as the process starts; a run without
// them starts itself again with the file of this folder added.
void addSanitizerSuppressions(char **argv)
{
    const char *options = std::getenv("TSAN_OPTIONS");
    if (options && std::strstr(options, "suppressions="))
        return;
    const std::string value =
        std::string(options ? options : "") + " suppressions=" QUORVAL_TSAN_SUPPRESSIONS;
    setenv("TSAN_OPTIONS", value.c_str(), 1);
    execv("/proc/self/exe", argv);
}
#endif

// The streams need an event loop for the main queue and a settings store; the store lives in a
// temporary directory so that the tests never touch the user's own.
int main(int argc, char **argv)
{
#if defined(__SANITIZE_THREAD__)
    addSanitizerSuppressions(argv);
#endif
    QCoreApplication app(argc, argv);
    QTemporaryDir settingsDir;
    quorval::OptionStore::usePrivateStore(settingsDir.path());
    QCoreApplication::setOrganizationName("Quorval");
    QCoreApplication::setApplicationName("Quorval");
    quorval::Quorval::installMainPoster(
        [](std::function<void()> fn) { quorval::test::MainQueue::post(std::move(fn)); });
    testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
    quorval::Quorval::shutdown();
    return result;
}
