#include "app/SoundDocument.h"

#include "app/tests/Support.h"
#include "options/Parameters.h"
#include "streams/MusicStream.h"
#include "streams/WavStream.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>
#include <QWidget>

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace quorval {
namespace {

using Answer = AskViewController::Answer;

const QString kSaveQuestion =
    QStringLiteral("Save modified file? | demo.wav has been modified.\nDo you want to save it?");

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool write(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

// The sound document alone, on a copy of the demo.
class SoundDocumentTest : public DemoCopyTest
{
protected:
    void openCopy() override
    {
        // The sound's own messages ("Can't save sound file") reach the dialog, as in the window.
        AskViewController::installAsMessageHandler(&window);
        document = std::make_unique<SoundDocument>(
            Parameters::shared(), &window, [this] { ++stops; }, panels());
        ASSERT_TRUE(document->openFile(demoPath));
        document->wavStream()->waitForCopy();
    }

    void TearDown() override
    {
        if (const std::shared_ptr<WavStream> wav = document ? document->wavStream() : nullptr)
            wav->modified = false;
        document.reset();
    }

    QWidget window;
    ScriptedAnswers script;
    std::unique_ptr<SoundDocument> document;
    int stops = 0;
};

TEST_F(SoundDocumentTest, theQuestionAboutAModifiedSoundFollowsEachAnswer)
{
    const std::shared_ptr<WavStream> demo = document->wavStream();
    demo->modified = true;

    // Cancel: New stops, the sound stays.
    script.answers = {Answer::cancel};
    document->newRecording();
    EXPECT_EQ(script.dialogs, QStringList{kSaveQuestion});
    EXPECT_EQ(document->wavStream(), demo);

    // Yes on Open: an opened file is never written over, so the save panel asks where (with
    // playing and recording stopped first); then the open panel comes.
    script.dialogs.clear();
    const QString saved = dir.filePath(QStringLiteral("saved.wav"));
    savePath = saved;
    script.answers = {Answer::yes};
    document->open();
    EXPECT_EQ(script.dialogs, QStringList{kSaveQuestion});
    EXPECT_EQ(savePanels, 1);
    EXPECT_EQ(openPanels, 1);
    EXPECT_EQ(stops, 1);
    EXPECT_EQ(contents(saved), contents(demoPath));
    EXPECT_FALSE(demo->modified);
    EXPECT_EQ(document->filePath(), saved);
    EXPECT_EQ(document->soundName(), QStringLiteral("saved.wav"));

    // Before the window closes: cancel keeps it open, no lets it close unsaved.
    demo->modified = true;
    script.answers = {Answer::cancel};
    EXPECT_FALSE(document->mayClose());
    EXPECT_TRUE(demo->modified);
    script.answers = {Answer::no};
    EXPECT_TRUE(document->mayClose());
    EXPECT_EQ(savePanels, 1);

    // With the check off nothing is asked.
    demo->modified = true;
    ASSERT_TRUE(Parameters::shared().checkForModifiedFiles.setValue(false));
    script.dialogs.clear();
    document->newRecording();
    EXPECT_TRUE(script.dialogs.isEmpty());
    EXPECT_EQ(document->soundName(), QStringLiteral("New File"));
}

TEST_F(SoundDocumentTest, saveAndExportWriteWhereAskedAndLoseNothingWhereTheyCannot)
{
    const std::shared_ptr<WavStream> demo = document->wavStream();
    demo->modified = true;
    const QString plain = dir.filePath(QStringLiteral("plain"));
    ASSERT_TRUE(write(plain, "not a folder"));
    savePath = plain + QStringLiteral("/sound.wav");
    document->saveAs();
    EXPECT_EQ(script.dialogs, QStringList{QStringLiteral(" | Can't save sound file")});
    EXPECT_TRUE(demo->modified);
    EXPECT_EQ(contents(plain), QByteArray("not a folder"));

    // Save of a sound never saved asks where; every frame is kept, the file opened untouched.
    savePath = dir.filePath(QStringLiteral("kept.wav"));
    document->save();
    EXPECT_EQ(savePanels, 2);
    EXPECT_FALSE(demo->modified);
    EXPECT_EQ(document->soundName(), QStringLiteral("kept.wav"));
    const QByteArray original = contents(QStringLiteral(QUORVAL_DEMO_WAV));
    EXPECT_EQ(contents(*savePath), original);
    EXPECT_EQ(contents(demoPath), original);

    // Export writes exactly the frames selected, in the sound's format.
    EXPECT_FALSE(document->selectedFrames());
    document->music()->timeView->selectionStart = 1.0;
    document->music()->timeView->selectionEnd = 3.5;
    savePath = dir.filePath(QStringLiteral("part.wav"));
    document->exportSelection();
    EXPECT_EQ(savePanelTitle, QStringLiteral("Export Selection"));
    const QByteArray exported = contents(*savePath);
    ASSERT_EQ(exported.size(), 44 + 2 * 110250);
    EXPECT_EQ(exported.mid(44), original.mid(44 + 2 * 44100, 2 * 110250));
    EXPECT_EQ(exported.mid(22, 14), original.mid(22, 14)); // channels, rate, frame size, bits

    script.dialogs.clear();
    const QStringList files = QDir(dir.path()).entryList(QDir::Files);
    savePath = dir.filePath(QStringLiteral("part.wav/inside.wav"));
    document->exportSelection();
    EXPECT_EQ(script.dialogs, QStringList{QStringLiteral(" | Can't save sound file")});
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), files);

    // As Save As writes: a link keeps naming its file, which takes the selection, and a file of
    // the user's that happens to be called NAME.partial is left alone.
    const QString real = dir.filePath(QStringLiteral("real.wav"));
    const QString link = dir.filePath(QStringLiteral("link.wav"));
    ASSERT_TRUE(write(real, "an older take"));
    ASSERT_TRUE(QFile::link(real, link));
    ASSERT_TRUE(write(link + QStringLiteral(".partial"), "the user's own"));
    script.dialogs.clear();
    savePath = link;
    document->exportSelection();
    EXPECT_TRUE(script.dialogs.isEmpty()) << script.dialogs.join('\n').toStdString();
    EXPECT_TRUE(QFileInfo(link).isSymLink());
    EXPECT_EQ(contents(real), exported);
    EXPECT_EQ(contents(link + QStringLiteral(".partial")), QByteArray("the user's own"));
}

TEST_F(SoundDocumentTest, aTakeTheUserDiscardsIsGoneAtOnceAndAnEmptyOneIsNeverKept)
{
    // A take with sound in it, as the recorder appends it.
    const auto recordTake = [this] {
        document->newRecording();
        const std::shared_ptr<WavStream> take = document->wavStream();
        EXPECT_TRUE(take && take->appendSamples(std::vector<std::int16_t>(4410, 1000)));
        return take ? QFile::decodeName(take->fileURL.c_str()) : QString();
    };
    const auto gone = [](const QString &path) {
        return QTest::qWaitFor([&path] { return !QFileInfo::exists(path); }, 10000);
    };

    // "No": removed as soon as another sound takes its place.
    QString take = recordTake();
    ASSERT_TRUE(QFileInfo::exists(take));
    script.answers = {Answer::no};
    document->newRecording();
    EXPECT_TRUE(gone(take)) << take.toStdString();

    // "Cancel" keeps it, shown and on disk.
    take = recordTake();
    script.answers = {Answer::cancel};
    document->newRecording();
    EXPECT_EQ(QFile::decodeName(document->wavStream()->fileURL.c_str()), take);
    EXPECT_TRUE(QFileInfo::exists(take));

    // A new recording with nothing in it goes when replaced, even once marked as changed.
    script.answers = {Answer::no};
    document->newRecording();
    std::shared_ptr<WavStream> empty = document->wavStream();
    ASSERT_TRUE(empty);
    const QString emptyPath = QFile::decodeName(empty->fileURL.c_str());
    empty->modified = true;
    empty.reset();
    ASSERT_TRUE(document->openFile(demoPath));
    EXPECT_TRUE(gone(emptyPath)) << emptyPath.toStdString();
}

} // namespace
} // namespace quorval
