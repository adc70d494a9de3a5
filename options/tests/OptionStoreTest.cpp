#include "options/OptionStore.h"

#include "options/Parameters.h"
#include "options/tests/support/OptionsTestStore.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QSettings>
#include <QThread>

#include <thread>
#include <utility>
#include <vector>

namespace quorval {
namespace {

using OptionStoreTest = StoreTest;

QString fileText(const QString &key)
{
    return QSettings(QStringLiteral("Quorval"), QStringLiteral("Quorval")).value(key).toString();
}

TEST_F(OptionStoreTest, aValueSetIsSeenByEverySetAndWrittenThrough)
{
    Parameters writer;
    Parameters reader;
    EXPECT_EQ(reader.aFrequency.value(), 440.0);
    ASSERT_TRUE(writer.aFrequency.setValue(442.5));
    ASSERT_TRUE(writer.key.setValue(QStringLiteral("E\u266D")));
    EXPECT_EQ(reader.aFrequency.value(), 442.5);
    EXPECT_EQ(reader.key.value(), QStringLiteral("E\u266D"));
    // On disk at once, where the next start reads it.
    EXPECT_EQ(fileText(QStringLiteral("A Frequency")), QStringLiteral("442.5000"));
    EXPECT_EQ(fileText(QStringLiteral("Key")), QStringLiteral("E\u266D"));

    // What another process writes is read at the next start, and writing one option keeps it.
    QSettings(QStringLiteral("Quorval"), QStringLiteral("Quorval"))
        .setValue(QStringLiteral("Response"), QStringLiteral("7.0000"));
    EXPECT_EQ(reader.response.value(), 4.0);
    ASSERT_TRUE(writer.aFrequency.setValue(443.0));
    EXPECT_EQ(fileText(QStringLiteral("Response")), QStringLiteral("7.0000"));
    OptionStore::reload();
    EXPECT_EQ(reader.response.value(), 7.0);
    EXPECT_EQ(reader.aFrequency.value(), 443.0);

    writer.aFrequency.resetToDefault();
    EXPECT_EQ(reader.aFrequency.value(), 440.0);
    EXPECT_TRUE(fileText(QStringLiteral("A Frequency")).isEmpty());
}

// Runs the main thread's events until count reaches wanted or a generous deadline passes.
bool waitForCount(const std::vector<std::pair<QString, QThread *>> &seen, std::size_t wanted)
{
    const QDeadlineTimer deadline(10000);
    while (seen.size() < wanted && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    return seen.size() == wanted;
}

TEST_F(OptionStoreTest, eachChangeIsSignalledOnceOnTheMainThreadWhoeverSetsIt)
{
    Parameters parameters;
    std::vector<std::pair<QString, QThread *>> seen;
    const QMetaObject::Connection connection = QObject::connect(
        &OptionStore::changes(), &OptionChanges::changed,
        [&seen](const QString &key) { seen.emplace_back(key, QThread::currentThread()); });
    QThread *const mainThread = QCoreApplication::instance()->thread();

    ASSERT_TRUE(parameters.aFrequency.setValue(441.0));
    ASSERT_TRUE(parameters.aFrequency.setValue(441.0));
    ASSERT_TRUE(parameters.tuning.setValue(false));
    (void)parameters.aFrequency.value();
    // Set on the main thread: told at once.
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0], std::make_pair(QStringLiteral("A Frequency"), mainThread));

    std::thread other([&parameters] {
        (void)parameters.minor.setValue(true);
        (void)parameters.minor.setValue(true);
        (void)parameters.labelPianoKeys.setValue(QStringLiteral("None"));
    });
    other.join();
    // Read at once, told later on the main thread.
    EXPECT_TRUE(parameters.minor.value());
    ASSERT_TRUE(waitForCount(seen, 3));
    EXPECT_EQ(seen[1], std::make_pair(QStringLiteral("Minor"), mainThread));
    EXPECT_EQ(seen[2], std::make_pair(QStringLiteral("Label Piano Keys"), mainThread));

    parameters.minor.resetToDefault();
    parameters.minor.resetToDefault();
    ASSERT_EQ(seen.size(), 4u);
    EXPECT_EQ(seen[3].first, QStringLiteral("Minor"));
    QObject::disconnect(connection);
}

} // namespace
} // namespace quorval
