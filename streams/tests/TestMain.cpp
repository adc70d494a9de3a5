#include "streams/Quorval.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

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
    quorval::Quorval::installMainPoster([&app](std::function<void()> fn) {
        QMetaObject::invokeMethod(&app, std::move(fn), Qt::QueuedConnection);
    });
    testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
    quorval::Quorval::shutdown();
    return result;
}
