#include "options/tests/support/OptionsTestStore.h"

#include "options/OptionStore.h"

#include <QSettings>
#include <QTemporaryDir>

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
    QTemporaryDir root;
    if (!root.isValid()) {
        std::fprintf(stderr, "no temporary directory for the test store\n");
        return 1;
    }
    // Set before anything asks for a standard path, and before QSettings is first used.
    qputenv("XDG_CONFIG_HOME", root.filePath(QStringLiteral("user")).toLocal8Bit());
    qputenv("XDG_CONFIG_DIRS", root.filePath(QStringLiteral("system")).toLocal8Bit());
    const std::unique_ptr<QCoreApplication> app = makeApplication(argc, argv);
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope,
                       root.filePath(QStringLiteral("user")));
    QSettings::setPath(QSettings::NativeFormat, QSettings::SystemScope,
                       root.filePath(QStringLiteral("system")));
    storeRoot() = root.path();
    OptionStore::reload();

    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

} // namespace quorval
