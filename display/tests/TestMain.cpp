#include "options/OptionStore.h"
#include "streams/Quorval.h"

#include <QApplication>
#include <QMetaObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstdlib>

// The views need a widget application; without a display they draw on Qt's offscreen platform.
// The options live in a temporary store, so the tests never touch the user's own.
int main(int argc, char **argv)
{
    if (!std::getenv("DISPLAY") && !std::getenv("WAYLAND_DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    QTemporaryDir settingsDir;
    quorval::OptionStore::usePrivateStore(settingsDir.path());
    QApplication::setOrganizationName("Quorval");
    QApplication::setApplicationName("Quorval");
    quorval::Quorval::installMainPoster([&app](std::function<void()> fn) {
        QMetaObject::invokeMethod(&app, std::move(fn), Qt::QueuedConnection);
    });
    testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
    quorval::Quorval::shutdown();
    return result;
}
