#include "streams/WorkingFiles.h"

#include "analysis/tests/support/EndedProcess.h"
#include "streams/tests/Wait.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace quorval {
namespace {

namespace fs = std::filesystem;

// Points the temporary folder at a folder of the test's own while it lives.
class OwnTemporaryFolder
{
public:
    OwnTemporaryFolder()
    {
        const char *old = std::getenv("TMPDIR");
        if (old)
            previous = old;
        ::setenv("TMPDIR", dir.path().toLocal8Bit().constData(), 1);
    }
    ~OwnTemporaryFolder()
    {
        if (previous.empty())
            ::unsetenv("TMPDIR");
        else
            ::setenv("TMPDIR", previous.c_str(), 1);
    }
    OwnTemporaryFolder(const OwnTemporaryFolder &) = delete;
    OwnTemporaryFolder &operator=(const OwnTemporaryFolder &) = delete;

    fs::path path(const std::string &name) const
    {
        return fs::path(dir.path().toStdString()) / name;
    }

private:
    QTemporaryDir dir;
    std::string previous;
};

void touch(const fs::path &path)
{
    std::ofstream(path) << "x";
}

TEST(WorkingFiles, staleScratchOfEndedProcessesGoesAndRecordingsStayForRecovery)
{
    OwnTemporaryFolder temporary;
    const std::string dead = std::to_string(testsignals::endedProcess());
    const std::string alive = std::to_string(::getpid());
    touch(temporary.path("quorval-copy-" + dead + "-a.wav"));
    fs::create_directory(temporary.path("quorval-options-" + dead + "-abc"));
    touch(temporary.path("quorval-options-" + dead + "-abc/settings.conf"));
    touch(temporary.path("quorval-recording-" + dead + "-b.wav"));
    touch(temporary.path("quorval-copy-" + alive + "-c.wav"));
    touch(temporary.path("quorval-copy-x-d.wav"));
    touch(temporary.path("other-" + dead + ".wav"));

    EXPECT_EQ(WorkingFiles::removeStale(), 2);
    EXPECT_FALSE(fs::exists(temporary.path("quorval-copy-" + dead + "-a.wav")));
    EXPECT_FALSE(fs::exists(temporary.path("quorval-options-" + dead + "-abc")));
    for (const std::string &kept :
         {"quorval-recording-" + dead + "-b.wav", "quorval-copy-" + alive + "-c.wav",
          std::string("quorval-copy-x-d.wav"), "other-" + dead + ".wav"})
        EXPECT_TRUE(fs::exists(temporary.path(kept))) << kept;

    const auto orphans = WorkingFiles::orphanedRecordings();
    ASSERT_EQ(orphans.size(), 1u);
    EXPECT_TRUE(WorkingFiles::isRecording(orphans[0]));
    // New paths carry this process's number and lie in the temporary folder.
    const std::string copy = WorkingFiles::newPath(WorkingFiles::Kind::copy);
    EXPECT_EQ(fs::path(copy).parent_path(), temporary.path("x").parent_path());
    EXPECT_EQ(fs::path(copy).filename().string().rfind("quorval-copy-" + alive + "-", 0), 0u);
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
