#include "analysis/tests/support/TestSignals.h"
#include "options/Messages.h"
#include "streams/WavStream.h"
#include "streams/tests/SoundFiles.h"
#include "streams/tests/TemporaryFolder.h"

#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quorval {
namespace {

TEST(WavStreamSave, writesThroughAFifoAndLeavesAFolderAlone)
{
    // Small enough to fit a pipe's buffer, so the write completes before the read.
    const int frames = 1000;
    testsignals::TempWav file(testsignals::sine(440.0, 8000.0, frames), {}, 2);
    ASSERT_TRUE(file.ok());
    auto stream = WavStream::createFromFile(file.path());
    ASSERT_NE(stream, nullptr);
    stream->waitForCopy();

    QTemporaryDir dir;
    const std::string fifo = QDir(dir.path()).filePath("pipe.wav").toStdString();
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const int reader = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(reader, 0);
    EXPECT_TRUE(stream->saveAs(fifo));
    std::string received(1 << 16, '\0');
    const ssize_t n = ::read(reader, received.data(), received.size());
    ::close(reader);
    struct stat status = {};
    ASSERT_EQ(::stat(fifo.c_str(), &status), 0);
    EXPECT_TRUE(S_ISFIFO(status.st_mode));
    ASSERT_GT(n, 44);
    EXPECT_EQ(received.substr(44, static_cast<std::size_t>(n) - 44),
              test::fileBytes(file.path()).substr(44));

    const std::string folder = QDir(dir.path()).filePath("folder.wav").toStdString();
    ASSERT_TRUE(std::filesystem::create_directory(folder));
    const MessageHandler previous =
        setMessageHandler([](const QString &, const QString &, const QString &) {});
    EXPECT_FALSE(stream->saveAs(folder));
    setMessageHandler(previous);
    EXPECT_TRUE(std::filesystem::is_directory(folder));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path().toStdString()),
                            std::filesystem::directory_iterator()),
              2);
}

mode_t permissionsOf(const std::string &path)
{
    struct stat status = {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

// No umask while it lives, so that a mode chosen at creation shows as it was given.
class NoUmask
{
public:
    NoUmask() : previous(::umask(0)) {}
    ~NoUmask() { ::umask(previous); }
    NoUmask(const NoUmask &) = delete;
    NoUmask &operator=(const NoUmask &) = delete;

private:
    mode_t previous;
};

TEST(WavStreamSave, workingFilesAreTheOwnersAloneAndSavedFilesAreReadableAsBefore)
{
    const NoUmask noUmask;
    QTemporaryDir dir;
    const auto recording = WavStream::createForRecording(1, 2, 44100.0);
    ASSERT_NE(recording, nullptr);
    EXPECT_EQ(permissionsOf(recording->fileURL), 0600u);

    testsignals::TempWav file(testsignals::sine(440.0, 8000.0, 4410), {}, 2);
    ASSERT_TRUE(file.ok());
    const auto opened = WavStream::createFromFile(file.path());
    ASSERT_NE(opened, nullptr);
    EXPECT_EQ(permissionsOf(opened->fileURL), 0600u);
    const std::string floats = QDir(dir.path()).filePath("float.wav").toStdString();
    ASSERT_TRUE(test::writeSoundFile(floats, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 1, 44100,
                                     test::leftSine(440.0, 0.5, 4410, 1, 44100)));
    const auto imported = WavStream::createFromFile(floats);
    ASSERT_NE(imported, nullptr);
    EXPECT_EQ(permissionsOf(imported->fileURL), 0600u);
    opened->waitForCopy();

    // A new file is made as any file of the user's; one replaced keeps its mode.
    const std::string fresh = QDir(dir.path()).filePath("fresh.wav").toStdString();
    ASSERT_TRUE(opened->saveAs(fresh));
    EXPECT_EQ(permissionsOf(fresh), 0666u);
    const std::string shared = QDir(dir.path()).filePath("shared.wav").toStdString();
    std::ofstream(shared) << "old";
    ASSERT_EQ(::chmod(shared.c_str(), 0640), 0);
    ASSERT_TRUE(opened->saveAs(shared));
    EXPECT_EQ(permissionsOf(shared), 0640u);
    EXPECT_EQ(test::fileBytes(shared).substr(44), test::fileBytes(file.path()).substr(44));
}

TEST(WavStreamSave, aNewRecordingWhereNothingCanBeWrittenSaysWhyAndWhereAndLeavesNothing)
{
    test::OwnTemporaryFolder temporary;
    const std::string folder = temporary.path().string();
    std::string why;
    bool mounted = false;
    if (::geteuid() == 0) {
        // A disk of 64 KB, filled up.
        if (::mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=64k") != 0)
            GTEST_SKIP() << "run as root, but a tmpfs cannot be mounted here to fill up";
        mounted = true;
        std::ofstream filler(folder + "/filler", std::ios::binary);
        const std::string block(4096, 'x');
        for (int i = 0; i < 64 && filler.write(block.data(), block.size()); ++i) {
        }
        filler.close();
        why = "the disk is full";
    } else {
        ASSERT_EQ(::chmod(folder.c_str(), 0500), 0);
        why = "permission denied";
    }

    test::MessageCatcher messages;
    EXPECT_EQ(WavStream::createForRecording(1, 2, 44100.0), nullptr);
    std::vector<std::string> left;
    for (const auto &entry : std::filesystem::directory_iterator(folder))
        left.push_back(entry.path().filename().string());
    if (mounted)
        EXPECT_EQ(::umount(folder.c_str()), 0);
    else
        (void)::chmod(folder.c_str(), 0700);

    ASSERT_EQ(messages.texts.size(), 1u);
    EXPECT_EQ(messages.texts[0].toStdString(),
              "Can't create .wav file -- internal error: " + why + ", in the folder " + folder);
    EXPECT_EQ(left, mounted ? std::vector<std::string>{"filler"} : std::vector<std::string>{});
}

} // namespace
} // namespace quorval
