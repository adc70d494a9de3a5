// The main of the window tests: one QApplication, offscreen when there is no display, the main
// queue posting into its event loop, and the private folders of the options tests (working files
// included: the start-up offers recordings other processes left in the shared folder).
#include "options/tests/support/OptionsTestStore.h"
#include "streams/Quorval.h"

#include <QApplication>

int main(int argc, char **argv)
{
    // Decided before GoogleTest lists the tests, since listing makes the application too.
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") &&
        qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // The start-up update check must never reach the network from a test.
    qputenv("QUORVAL_UPDATE_URL", "http://127.0.0.1:1/");
    return quorval::runTestsInPrivateStore(argc, argv, [](int &argc, char **argv) {
        auto app = std::make_unique<QApplication>(argc, argv);
        QApplication *application = app.get();
        quorval::Quorval::installMainPoster([application](std::function<void()> fn) {
            QMetaObject::invokeMethod(application, std::move(fn), Qt::QueuedConnection);
        });
        return app;
    });
}
