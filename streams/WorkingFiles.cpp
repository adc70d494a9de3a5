#include "streams/WorkingFiles.h"

#include <QUuid>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <deque>
#include <filesystem>
#include <mutex>
#include <sys/resource.h>
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
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator(folder(), error)) {
        const std::string name = entry.path().filename().string();
        const bool isCopy = ownerOf(name, kCopyPrefix) >= 0 && entry.path().extension() == ".wav";
        const long owner = isCopy ? ownerOf(name, kCopyPrefix) : ownerOf(name, kOptionsPrefix);
        if (owner < 0 || !processIsGone(owner))
            continue;
        std::error_code ignored;
        if (std::filesystem::remove_all(entry.path(), ignored) > 0)
            ++removed;
    }
    return removed;
}

std::vector<std::string> WorkingFiles::orphanedRecordings()
{
    std::vector<std::pair<std::filesystem::file_time_type, std::string>> found;
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator(folder(), error)) {
        const std::string name = entry.path().filename().string();
        if (!processIsGone(ownerOf(name, kRecordingPrefix)))
            continue;
        std::error_code ignored;
        found.emplace_back(entry.last_write_time(ignored), entry.path().string());
    }
    std::sort(found.begin(), found.end());
    std::vector<std::string> paths;
    for (auto &[time, path] : found)
        paths.push_back(std::move(path));
    return paths;
}

} // namespace quorval
