#include "streams/WorkingFiles.h"

#include "analysis/tests/support/EndedProcess.h"
#include "analysis/tests/support/OtherUser.h"
#include "streams/tests/TemporaryFolder.h"
#include "streams/tests/Wait.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <optional>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace quorval {
namespace {

namespace fs = std::filesystem;

using test::OwnTemporaryFolder;

void touch(const fs::path &path)
{
    std::ofstream(path) << "x";
}

// A name as the program gives it: "<prefix><pid>-<uuid>.wav", the uuid ending in n.
std::string named(const std::string &prefix, const std::string &pid, int n)
{
    return prefix + pid + "-0b5c3f1e-8d2a-4c6b-9e7f-1a2b3c4d" + std::to_string(1000 + n) + ".wav";
}

// A recording as the recorder leaves it: a 44-byte header announcing dataBytes, then they.
void plantRecording(const fs::path &path, std::uint32_t dataBytes)
{
    std::string bytes(44 + dataBytes, '\0');
    std::memcpy(&bytes[0], "RIFF", 4);
    const std::uint32_t riffSize = 36 + dataBytes;
    std::memcpy(&bytes[4], &riffSize, 4);
    std::memcpy(&bytes[8], "WAVEfmt ", 8);
    std::memcpy(&bytes[36], "data", 4);
    std::memcpy(&bytes[40], &dataBytes, 4);
    std::ofstream(path, std::ios::binary) << bytes;
}

TEST(WorkingFiles, staleScratchOfEndedProcessesGoesAndNothingElse)
{
    OwnTemporaryFolder temporary;
    const std::string dead = std::to_string(testsignals::endedProcess());
    const std::string alive = std::to_string(::getpid());
    const std::string copy = named("quorval-copy-", dead, 1);
    touch(temporary.path(copy));
    fs::create_directory(temporary.path("quorval-options-" + dead + "-abc"));
    touch(temporary.path("quorval-options-" + dead + "-abc/settings.conf"));
    const std::vector<std::string> kept = {
        named("quorval-recording-", dead, 2), named("quorval-copy-", alive, 3),
        "quorval-copy-x-d.wav", "other-" + dead + ".wav",
        // Named like scratch, made by nobody here: a folder and a link are never removed, nor
        // what the link points to.
        named("quorval-copy-", dead, 4), named("quorval-copy-", dead, 5), "target"};
    touch(temporary.path(kept[0]));
    touch(temporary.path(kept[1]));
    touch(temporary.path(kept[2]));
    touch(temporary.path(kept[3]));
    fs::create_directory(temporary.path(kept[4]));
    touch(temporary.path(kept[6]));
    fs::create_symlink(temporary.path(kept[6]), temporary.path(kept[5]));

    EXPECT_EQ(WorkingFiles::removeStale(), 2);
    EXPECT_FALSE(fs::exists(temporary.path(copy)));
    EXPECT_FALSE(fs::exists(temporary.path("quorval-options-" + dead + "-abc")));
    for (const std::string &name : kept)
        EXPECT_TRUE(fs::exists(fs::symlink_status(temporary.path(name)))) << name;

    // New paths carry this process's number and lie in the temporary folder.
    const std::string path = WorkingFiles::newPath(WorkingFiles::Kind::copy);
    EXPECT_EQ(fs::path(path).parent_path(), temporary.path("x").parent_path());
    EXPECT_EQ(fs::path(path).filename().string().rfind("quorval-copy-" + alive + "-", 0), 0u);
}

TEST(WorkingFiles, anotherUsersEntriesNamedLikeOursAreNeverRemovedNorOffered)
{
    std::string why;
    const std::optional<uid_t> other = testsignals::otherUser(why);
    if (!other)
        GTEST_SKIP() << why;
    OwnTemporaryFolder temporary;
    const std::string dead = std::to_string(testsignals::endedProcess());
    const std::vector<fs::path> planted = {temporary.path(named("quorval-copy-", dead, 1)),
                                           temporary.path("quorval-options-" + dead + "-abc"),
                                           temporary.path(named("quorval-recording-", dead, 2))};
    touch(planted[0]);
    fs::create_directory(planted[1]);
    plantRecording(planted[2], 4410);
    for (const fs::path &path : planted)
        ASSERT_EQ(::chown(path.c_str(), *other, static_cast<gid_t>(-1)), 0);
    // Their own file in our options folder is left as well, and so the folder.
    const fs::path ours = temporary.path("quorval-options-" + dead + "-def");
    fs::create_directory(ours);
    touch(ours / "theirs");
    ASSERT_EQ(::chown((ours / "theirs").c_str(), *other, static_cast<gid_t>(-1)), 0);

    EXPECT_EQ(WorkingFiles::removeStale(), 0);
    for (const fs::path &path : planted)
        EXPECT_TRUE(fs::exists(path)) << path;
    EXPECT_TRUE(fs::exists(ours / "theirs"));
    EXPECT_TRUE(WorkingFiles::orphanedRecordings().empty());
}

TEST(WorkingFiles, onlyOurOwnLostRecordingsWithSoundAreOffered)
{
    OwnTemporaryFolder temporary;
    const std::string dead = std::to_string(testsignals::endedProcess());
    const fs::path lost = temporary.path(named("quorval-recording-", dead, 1));
    plantRecording(lost, 4410);
    const fs::path elsewhere = temporary.path("elsewhere.wav");
    plantRecording(elsewhere, 4410);
    // A header with no sound, an empty file from a failed creation, a link (to a recording or
    // anything), a folder, garbage, another name, a recording of a live process.
    plantRecording(temporary.path(named("quorval-recording-", dead, 2)), 0);
    std::ofstream(temporary.path(named("quorval-recording-", dead, 3))).close();
    fs::create_symlink(elsewhere, temporary.path(named("quorval-recording-", dead, 4)));
    fs::create_symlink("/etc/passwd", temporary.path(named("quorval-recording-", dead, 5)));
    fs::create_directory(temporary.path(named("quorval-recording-", dead, 6)));
    std::ofstream(temporary.path(named("quorval-recording-", dead, 7))) << std::string(5000, 'x');
    plantRecording(temporary.path("quorval-recording-" + dead + "-b.wav"), 4410);
    plantRecording(temporary.path("quorval-recording-" + dead + "-b"), 4410);
    plantRecording(temporary.path(named("quorval-recording-", std::to_string(::getpid()), 8)),
                   4410);

    const std::vector<std::string> orphans = WorkingFiles::orphanedRecordings();
    ASSERT_EQ(orphans.size(), 1u);
    EXPECT_EQ(orphans[0], lost.string());
    EXPECT_TRUE(WorkingFiles::isRecording(orphans[0]));
}

TEST(WorkingFiles, trackedFilesAndFoldersAreRemovedUntilForgotten)
{
    OwnTemporaryFolder temporary;
    const fs::path file = temporary.path("quorval-copy-1-a.wav");
    const fs::path kept = temporary.path("quorval-copy-1-b.wav");
    const fs::path emptyFolder = temporary.path("quorval-options-1-e");
    touch(file);
    touch(kept);
    fs::create_directory(emptyFolder);
    for (const fs::path &path : {file, kept, emptyFolder})
        WorkingFiles::track(path.string());
    WorkingFiles::forget(kept.string());
    WorkingFiles::removeTrackedNow();
    EXPECT_FALSE(fs::exists(file));
    EXPECT_FALSE(fs::exists(emptyFolder));
    EXPECT_TRUE(fs::exists(kept));

    const fs::path fullFolder = temporary.path("quorval-options-1-f");
    fs::create_directory(fullFolder);
    touch(fullFolder / "settings.conf");
    WorkingFiles::track(fullFolder.string());
    WorkingFiles::removeTracked();
    EXPECT_FALSE(fs::exists(fullFolder));
}

TEST(WorkingFiles, backgroundRemovalReleasesElsewhereAndStaysTrackedUntilDone)
{
    OwnTemporaryFolder temporary;
    const fs::path file = temporary.path("quorval-copy-1-c.wav");
    touch(file);
    WorkingFiles::track(file.string());
    std::promise<std::thread::id> releasedOn;
    std::promise<void> mayFinish;
    std::shared_future<void> finishing = mayFinish.get_future().share();
    WorkingFiles::removeInBackground(file.string(), [&releasedOn, finishing] {
        releasedOn.set_value(std::this_thread::get_id());
        finishing.wait();
    });
    EXPECT_NE(releasedOn.get_future().get(), std::this_thread::get_id());
    EXPECT_EQ(WorkingFiles::pendingRemovals(), 1);
    // A fatal signal while the removal waits still finds the file tracked.
    WorkingFiles::removeTrackedNow();
    EXPECT_FALSE(fs::exists(file));
    touch(file);
    mayFinish.set_value();
    EXPECT_TRUE(test::waitUntil([] { return WorkingFiles::pendingRemovals() == 0; }));
    EXPECT_FALSE(fs::exists(file));
    // Forgotten once removed: a file of the same name made later is not touched.
    touch(file);
    WorkingFiles::removeTrackedNow();
    EXPECT_TRUE(fs::exists(file));
}

} // namespace
} // namespace quorval
