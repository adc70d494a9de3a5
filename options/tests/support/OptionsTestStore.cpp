#include "options/tests/support/OptionsTestStore.h"

#include "options/OptionStore.h"
#include "options/PrivateFolders.h"

#include <QSettings>

#include <gtest/gtest.h>

#include <cstdio>

namespace quorval {

namespace {

QString &storeRoot()
{
    static QString root;
    return root;
}

} // namespace

QString testStoreRoot()
{
    return storeRoot();
}

void clearTestStore()
{
    QSettings settings(QStringLiteral("Quorval"), QStringLiteral("Quorval"));
    settings.clear();
    settings.sync();
    OptionStore::reload();
}

int runTestsInPrivateStore(int &argc, char **argv, const ApplicationMaker &makeApplication)
{
    const PrivateFolders folders;
    if (!folders.isValid()) {
        std::fprintf(stderr, "no temporary directory for the test store\n");
        return 1;
    }
    const std::unique_ptr<QCoreApplication> app = makeApplication(argc, argv);
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, folders.user());
    QSettings::setPath(QSettings::NativeFormat, QSettings::SystemScope, folders.system());
    storeRoot() = folders.root();
    OptionStore::reload();

    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

} // namespace quorval
