#include "app/RecentFiles.h"

#include "options/tests/support/OptionsTestStore.h"

#include <QAction>
#include <QMenu>
#include <QWidget>

#include <gtest/gtest.h>

namespace quorval {
namespace {

TEST_F(StoreTest, recentFilesKeepTheLastTenNewestFirstForTheNextStart)
{
    QWidget window;
    QStringList paths;
    for (int i = 0; i < 12; ++i)
        paths.append(QStringLiteral("/sounds/take%1.wav").arg(i));
    QStringList expected{paths[5]};
    for (int i = 11; i >= 2; --i)
        if (i != 5)
            expected.append(paths[i]);
    {
        RecentFiles recent(&window);
        EXPECT_FALSE(recent.menu()->isEnabled());
        // Opening one again moves it up.
        for (const QString &path : paths)
            recent.remember(path);
        recent.remember(paths[5]);
        EXPECT_EQ(recent.paths(), expected);
        // The menu names each by its file name and offers the whole path.
        const QList<QAction *> items = recent.menu()->actions();
        ASSERT_EQ(items.size(), RecentFiles::kRecentFiles);
        EXPECT_EQ(items[1]->text(), QStringLiteral("take11.wav"));
        EXPECT_EQ(items[1]->toolTip(), paths[11]);

        recent.forget(paths[9]);
        expected.removeAll(paths[9]);
        EXPECT_EQ(recent.menu()->actions().size(), expected.size());
    }
    const RecentFiles next(&window);
    EXPECT_EQ(next.paths(), expected);
    EXPECT_EQ(next.menu()->actions().front()->text(), QStringLiteral("take5.wav"));
}

} // namespace
} // namespace quorval
