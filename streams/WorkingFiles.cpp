#include "streams/WorkingFiles.h"

#include "analysis/RegularFile.h"
#include "analysis/WavFileOC.h"

#include <QUuid>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <deque>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <mutex>
#include <optional>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace quorval {

namespace {

constexpr const char *kCopyPrefix = "quorval-copy-";
constexpr const char *kRecordingPrefix = "quorval-recording-";
constexpr const char *kOptionsPrefix = "quorval-options-";

// Fixed slots, so that a signal handler reads them without allocating or locking: a slot is
// claimed (1), filled, then published (2); the handler only reads published ones.
constexpr std::size_t kPathBytes = 1024;
struct Slot
{
    std::atomic<int> state{0};
    char path[kPathBytes] = {};
};
Slot trackedSlots[WorkingFiles::kTracked];

bool processIsGone(long pid)
{
    if (pid <= 0 || pid == static_cast<long>(::getpid()))
        return false;
    return ::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH;
}

// The owner's pid in a name "<prefix><pid>-...", or -1.
long ownerOf(const std::string &name, const char *prefix)
{
    const std::size_t length = std::strlen(prefix);
    if (name.compare(0, length, prefix) != 0)
        return -1;
    long pid = 0;
    std::size_t i = length;
    for (; i < name.size() && name[i] >= '0' && name[i] <= '9' && pid < (1L << 40); ++i)
        pid = pid * 10 + (name[i] - '0');
    return i > length && i < name.size() && name[i] == '-' ? pid : -1;
}

// Exactly a name newPath() gives: "<prefix><pid>-<uuid>.wav", the uuid in QUuid's text without
// braces (8-4-4-4-12 lower-case hex digits).
bool isWorkingName(const std::string &name, const char *prefix)
{
    if (ownerOf(name, prefix) < 0)
        return false;
    const std::size_t dash = name.find('-', std::strlen(prefix));
    const std::string rest = name.substr(dash + 1);
    constexpr std::size_t kUuidChars = 36;
    if (rest.size() != kUuidChars + 4 || rest.compare(kUuidChars, 4, ".wav") != 0)
        return false;
    for (std::size_t i = 0; i < kUuidChars; ++i) {
        const char c = rest[i];
        const bool wanted = i == 8 || i == 13 || i == 18 || i == 23
                                ? c == '-'
                                : (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
        if (!wanted)
            return false;
    }
    return true;
}

// Removes an options folder of this user: its regular files of this user (a run makes no
// folders or links in it), then the folder, which stays when anything else is left in it.
bool removeOptionsFolder(int parentFd, const std::string &name, uid_t self)
{
    const int fd =
        ::openat(parentFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return false;
    if (DIR *listing = ::fdopendir(fd)) {
        while (const dirent *item = ::readdir(listing)) {
            struct stat status
            {
            };
            if (::fstatat(fd, item->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                S_ISREG(status.st_mode) && status.st_uid == self)
                (void)::unlinkat(fd, item->d_name, 0);
        }
        ::closedir(listing);
    } else {
        ::close(fd);
    }
    return ::unlinkat(parentFd, name.c_str(), AT_REMOVEDIR) == 0;
}

// The modification time (ns) of a recording worth offering at path: a regular file of this
// user, reached without following a link, holding at least one frame after its header.
std::optional<std::int64_t> recordingWithSound(const std::string &path)
{
    std::string why;
    const int fd = openRegularFile(path, O_RDONLY | O_NOFOLLOW, why);
    if (fd < 0)
        return std::nullopt;
    struct stat status
    {
    };
    unsigned char header[WavFileOC::kHeaderLength];
    const bool read = ::fstat(fd, &status) == 0 &&
                      ::pread(fd, header, sizeof header, 0) == static_cast<ssize_t>(sizeof header);
    ::close(fd);
    if (!read || status.st_uid != ::geteuid() || status.st_size <= WavFileOC::kHeaderLength)
        return std::nullopt;
    // The recorder keeps the header's data size current: 0 means nothing was recorded.
    if (WavFileOC::inputLong(header, 0) != WavFileOC::kRiff ||
        WavFileOC::inputLong(header, 8) != WavFileOC::kWave ||
        WavFileOC::inputLong(header, WavFileOC::kHeaderLength - 4) == 0)
        return std::nullopt;
    return std::int64_t{status.st_mtim.tv_sec} * 1000000000 + status.st_mtim.tv_nsec;
}

std::string prefixFor(WorkingFiles::Kind kind)
{
    return kind == WorkingFiles::Kind::recording ? kRecordingPrefix : kCopyPrefix;
}

struct Removal
{
    std::string path;
    std::function<void()> release;
};

void carryOut(Removal &removal)
{
    if (removal.release)
        removal.release();
    std::error_code ignored;
    std::filesystem::remove(removal.path, ignored);
    WorkingFiles::forget(removal.path);
}

// One thread, started on first use, at background priority: removals never compete with the
// analysis of the sound that replaced the removed one.
class Remover
{
public:
    ~Remover() { finish(); }

    void post(Removal removal)
    {
        {
            std::lock_guard lock(mutex);
            if (!finished) {
                if (!worker.joinable())
                    worker = std::thread([this] { run(); });
                waiting.push_back(std::move(removal));
                changed.notify_all();
                return;
            }
        }
        carryOut(removal);
    }

    void finish()
    {
        std::thread ending;
        {
            std::unique_lock lock(mutex);
            finished = true;
            changed.notify_all();
            ending = std::move(worker);
        }
        if (ending.joinable())
            ending.join();
    }

    int pending()
    {
        std::lock_guard lock(mutex);
        return static_cast<int>(waiting.size()) + busy;
    }

private:
    void run()
    {
        (void)::setpriority(PRIO_PROCESS, static_cast<id_t>(::syscall(SYS_gettid)), 10);
        std::unique_lock lock(mutex);
        for (;;) {
            changed.wait(lock, [this] { return finished || !waiting.empty(); });
            if (waiting.empty())
                return;
            Removal removal = std::move(waiting.front());
            waiting.pop_front();
            ++busy;
            lock.unlock();
            carryOut(removal);
            lock.lock();
            --busy;
        }
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Removal> waiting;
    int busy = 0;
    bool finished = false;
    std::thread worker;
};

Remover &remover()
{
    static Remover instance;
    return instance;
}

} // namespace

void WorkingFiles::removeInBackground(const std::string &path, std::function<void()> release)
{
    remover().post({path, std::move(release)});
}

void WorkingFiles::finishRemovals()
{
    remover().finish();
}

int WorkingFiles::pendingRemovals()
{
    return remover().pending();
}

std::string WorkingFiles::folder()
{
    std::error_code error;
    std::filesystem::path directory = std::filesystem::temp_directory_path(error);
    return error ? std::string("/tmp") : directory.string();
}

std::string WorkingFiles::newPath(Kind kind)
{
    const std::string uuid = QUuid::createUuid().toString(QUuid::WithoutBraces).toStdString();
    return (std::filesystem::path(folder()) /
            (prefixFor(kind) + std::to_string(::getpid()) + "-" + uuid + ".wav"))
        .string();
}

std::string WorkingFiles::optionsFolderTemplate()
{
    return (std::filesystem::path(folder()) /
            (kOptionsPrefix + std::to_string(::getpid()) + "-XXXXXX"))
        .string();
}

bool WorkingFiles::isRecording(const std::string &path)
{
    return ownerOf(std::filesystem::path(path).filename().string(), kRecordingPrefix) >= 0;
}

void WorkingFiles::track(const std::string &path)
{
    if (path.size() >= kPathBytes)
        return;
    for (Slot &slot : trackedSlots) {
        int expected = 0;
        if (!slot.state.compare_exchange_strong(expected, 1))
            continue;
        std::memcpy(slot.path, path.c_str(), path.size() + 1);
        slot.state = 2;
        return;
    }
}

void WorkingFiles::forget(const std::string &path)
{
    for (Slot &slot : trackedSlots) {
        // Only published paths are read: a slot being filled is written meanwhile.
        int expected = 2;
        if (slot.state.load() == 2 && std::strcmp(slot.path, path.c_str()) == 0 &&
            slot.state.compare_exchange_strong(expected, 1)) {
            slot.path[0] = '\0';
            slot.state = 0;
            return;
        }
    }
}

void WorkingFiles::removeTracked()
{
    for (Slot &slot : trackedSlots) {
        int expected = 2;
        if (!slot.state.compare_exchange_strong(expected, 1))
            continue;
        std::error_code ignored;
        std::filesystem::remove_all(slot.path, ignored);
        slot.path[0] = '\0';
        slot.state = 0;
    }
}

void WorkingFiles::removeTrackedNow() noexcept
{
    const int savedErrno = errno;
    for (Slot &slot : trackedSlots) {
        if (slot.state.load() != 2)
            continue;
        if (::unlink(slot.path) != 0 && errno == EISDIR)
            (void)::rmdir(slot.path);
    }
    errno = savedErrno;
}

int WorkingFiles::removeStale()
{
    int removed = 0;
    const uid_t self = ::geteuid();
    const int folderFd = ::open(folder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folderFd < 0)
        return 0;
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator(folder(), error)) {
        const std::string name = entry.path().filename().string();
        const bool isCopy = isWorkingName(name, kCopyPrefix);
        const long owner = isCopy ? ownerOf(name, kCopyPrefix) : ownerOf(name, kOptionsPrefix);
        if (owner < 0 || !processIsGone(owner))
            continue;
        // Only what this user made, as it was made: never another user's entry named like ours
        // (run as root, this one could remove it), never a link or what it points to.
        struct stat status
        {
        };
        if (::fstatat(folderFd, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
            status.st_uid != self)
            continue;
        if (isCopy && S_ISREG(status.st_mode) && ::unlinkat(folderFd, name.c_str(), 0) == 0)
            ++removed;
        else if (!isCopy && S_ISDIR(status.st_mode) && removeOptionsFolder(folderFd, name, self))
            ++removed;
    }
    ::close(folderFd);
    return removed;
}

std::vector<std::string> WorkingFiles::orphanedRecordings()
{
    std::vector<std::pair<std::int64_t, std::string>> found;
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator(folder(), error)) {
        const std::string name = entry.path().filename().string();
        if (!isWorkingName(name, kRecordingPrefix) ||
            !processIsGone(ownerOf(name, kRecordingPrefix)))
            continue;
        if (const std::optional<std::int64_t> modified = recordingWithSound(entry.path().string()))
            found.emplace_back(*modified, entry.path().string());
    }
    std::sort(found.begin(), found.end());
    std::vector<std::string> paths;
    for (auto &[time, path] : found)
        paths.push_back(std::move(path));
    return paths;
}

} // namespace quorval
