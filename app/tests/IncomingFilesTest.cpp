#include "app/IncomingFiles.h"

#include <QCoreApplication>
#include <QDialog>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

#include <functional>

namespace quorval {
namespace {

TEST(IncomingFiles, openOneAtATimeOnceStartedAndNeverBehindADialog)
{
    QStringList opened;
    std::function<void(const QString &)> opener = [&](const QString &path) { opened.append(path); };
    IncomingFiles incoming([&](const QString &path) { opener(path); }, nullptr);
    incoming.add({QStringLiteral("a"), QStringLiteral("b")});
    QCoreApplication::processEvents();
    EXPECT_TRUE(opened.isEmpty());
    incoming.start();
    ASSERT_TRUE(QTest::qWaitFor([&] { return opened.size() == 2; }, 5000));
    EXPECT_EQ(opened, (QStringList{QStringLiteral("a"), QStringLiteral("b")}));

    // A file that comes while one is being opened (its question running the event loop)
    // waits for it.
    QStringList openedMeanwhile;
    opener = [&](const QString &path) {
        opened.append(path);
        if (path == QStringLiteral("c")) {
            incoming.add({QStringLiteral("d")});
            QCoreApplication::processEvents();
            openedMeanwhile = opened;
        }
    };
    incoming.add({QStringLiteral("c")});
    ASSERT_TRUE(QTest::qWaitFor([&] { return opened.size() == 4; }, 5000));
    EXPECT_EQ(openedMeanwhile.back(), QStringLiteral("c"));
    EXPECT_EQ(opened.back(), QStringLiteral("d"));

    // Nor while any dialog shows, whoever asked it.
    QDialog dialog;
    dialog.setModal(true);
    bool openedBehindIt = true;
    QTimer::singleShot(0, &dialog, [&] {
        incoming.add({QStringLiteral("e")});
        QCoreApplication::processEvents();
        openedBehindIt = opened.contains(QStringLiteral("e"));
        dialog.accept();
    });
    dialog.exec();
    EXPECT_FALSE(openedBehindIt);
    ASSERT_TRUE(QTest::qWaitFor([&] { return opened.contains(QStringLiteral("e")); }, 5000));

    // A flood is cut at the most that may wait.
    opened.clear();
    incoming.add(QStringList(IncomingFiles::kMaxWaiting + 1, QStringLiteral("f")));
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return opened.size() >= qsizetype(IncomingFiles::kMaxWaiting); }, 5000));
    QCoreApplication::processEvents();
    EXPECT_EQ(opened.size(), qsizetype(IncomingFiles::kMaxWaiting));
}

} // namespace
} // namespace quorval
