#include "analysis/tests/support/TestSignals.h"
#include "options/Messages.h"
#include "streams/WavStream.h"
#include "streams/tests/SoundFiles.h"

#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <string>
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
    const MessageHandler previous = setMessageHandler([](const QString &, const QString &) {});
    EXPECT_FALSE(stream->saveAs(folder));
    setMessageHandler(previous);
    EXPECT_TRUE(std::filesystem::is_directory(folder));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path().toStdString()),
                            std::filesystem::directory_iterator()),
              2);
}

} // namespace
} // namespace quorval
