// The main of the widget tests: one QApplication for the whole run, offscreen when there is no
// display, and the private per-user store of the options tests.
#include "options/tests/support/OptionsTestStore.h"

#include <QApplication>

int main(int argc, char **argv)
{
    // Decided before GoogleTest lists the tests, since listing makes the application too.
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") &&
        qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    return quorval::runTestsInPrivateStore(argc, argv, [](int &argc, char **argv) {
        return std::make_unique<QApplication>(argc, argv);
    });
}
