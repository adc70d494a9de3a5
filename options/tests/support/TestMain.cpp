// The main of the tests that use Qt: one QCoreApplication for the whole run, and a per-user
// store in a temporary directory so no test reads or writes the user's own options.
#include "options/tests/support/OptionsTestStore.h"

int main(int argc, char **argv)
{
    return quorval::runTestsInPrivateStore(argc, argv, [](int &argc, char **argv) {
        return std::make_unique<QCoreApplication>(argc, argv);
    });
}
