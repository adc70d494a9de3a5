#include "app/CrashRecovery.h"

#include "app/tests/Support.h"
#include "streams/WavStream.h"

#include <QFileInfo>
#include <QTemporaryDir>
#include <QWidget>

namespace quorval {
namespace {

using Answer = AskViewController::Answer;

TEST_F(StoreTest, aRecordingACrashLeftIsRecoveredDiscardedOrKeptAsTheUserSays)
{
    ScriptedAnswers script;
    QWidget window;
    CrashRecovery recovery;
    const QString orphan = leaveOrphan();

    // Later: kept for the next start.
    script.answers = {Answer::cancel};
    EXPECT_EQ(recovery.offer(&window), nullptr);
    ASSERT_EQ(script.dialogs.size(), 1);
    EXPECT_TRUE(
        script.dialogs[0].startsWith(QStringLiteral("Recover Recording | Quorval ended before")))
        << script.dialogs[0].toStdString();
    EXPECT_TRUE(script.dialogs[0].contains(QStringLiteral(" of sound, recorded until ")));
    EXPECT_TRUE(QFileInfo::exists(orphan));

    // Recover: an unsaved sound with no place to save to; once saved, the crash copy goes.
    script.answers = {Answer::yes};
    const std::shared_ptr<WavStream> recovered = recovery.offer(&window);
    ASSERT_TRUE(recovered);
    EXPECT_TRUE(recovered->modified);
    EXPECT_FALSE(recovered->saveURL);
    EXPECT_EQ(recovered->fileTitle, "Recovered Recording");
    QTemporaryDir saveDir;
    ASSERT_TRUE(recovered->saveAs(
        QFile::encodeName(saveDir.filePath(QStringLiteral("rescued.wav"))).toStdString()));
    EXPECT_TRUE(QFileInfo::exists(orphan));
    recovery.settled(recovered);
    EXPECT_FALSE(QFileInfo::exists(orphan));

    // Discard: gone for good; nothing left to offer.
    const QString another = leaveOrphan();
    script.answers = {Answer::no};
    EXPECT_EQ(recovery.offer(&window), nullptr);
    EXPECT_FALSE(QFileInfo::exists(another));
    script.dialogs.clear();
    EXPECT_EQ(recovery.offer(&window), nullptr);
    EXPECT_TRUE(script.dialogs.isEmpty()) << script.dialogs.join('\n').toStdString();

    // Many at once are not many questions at each start: a few, each saying how many wait.
    QStringList many;
    for (int i = 0; i < 10; ++i)
        many.append(leaveOrphan());
    script.answers = std::deque<Answer>(10, Answer::cancel);
    EXPECT_EQ(recovery.offer(&window), nullptr);
    ASSERT_EQ(script.dialogs.size(), CrashRecovery::kRecoveryOffers);
    EXPECT_TRUE(script.dialogs[0].contains(QStringLiteral("1 of 10 recordings")))
        << script.dialogs[0].toStdString();
    for (const QString &path : many)
        EXPECT_TRUE(QFile::remove(path)) << path.toStdString();
}

} // namespace
} // namespace quorval
