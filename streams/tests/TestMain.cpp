#include "streams/Quorval.h"
#include "streams/tests/Wait.h"

#include <QCoreApplication>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

// glibc guards its time-zone state with a lock ThreadSanitizer cannot see; the settings store
// reaches it from several queues through QSettings' file-time checks.
extern "C" const char *__tsan_default_suppressions()
{
    return "race:tzset_internal\n";
}

// The streams need an event loop for the main queue and a settings store; the store lives in a
// temporary directory so that the tests never touch the user's own.
int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir settingsDir;
    QSettings::setDefaultFormat(QSettings::IniFormat);
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, settingsDir.path());
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, settingsDir.path());
    QCoreApplication::setOrganizationName("Quorval");
    QCoreApplication::setApplicationName("Quorval");
    quorval::Quorval::installMainPoster(
        [](std::function<void()> fn) { quorval::test::MainQueue::post(std::move(fn)); });
    testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
    quorval::Quorval::shutdown();
    return result;
}
