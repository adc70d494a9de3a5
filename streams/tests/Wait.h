#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

namespace quorval::test {

// The tests' main queue: work posted from other threads waits here until the main thread runs
// it. A plain mutex hands it over, so that ThreadSanitizer sees the order (Qt's own event queue
// is not instrumented in the system's Qt). The test main installs it as the main-queue poster.
class MainQueue
{
public:
    static void post(std::function<void()> fn)
    {
        {
            std::lock_guard lock(mutex);
            items.push_back(std::move(fn));
        }
        posted.notify_all();
    }

    // Runs everything posted so far, on the calling (main) thread; answers how many ran.
    static int runPosted()
    {
        std::deque<std::function<void()>> ready;
        {
            std::lock_guard lock(mutex);
            ready.swap(items);
        }
        for (auto &fn : ready)
            fn();
        return static_cast<int>(ready.size());
    }

    // Waits up to timeout for something to be posted.
    static void waitForPost(std::chrono::milliseconds timeout)
    {
        std::unique_lock lock(mutex);
        posted.wait_for(lock, timeout, [] { return !items.empty(); });
    }

private:
    static inline std::mutex mutex;
    static inline std::condition_variable posted;
    static inline std::deque<std::function<void()>> items;
};

// Runs the main queue's posted work until condition holds or timeoutMs pass; answers condition.
inline bool waitUntil(const std::function<bool()> &condition, int timeoutMs = 10000)
{
    QDeadlineTimer deadline(timeoutMs);
    for (;;) {
        MainQueue::runPosted();
        QCoreApplication::processEvents();
        if (condition())
            return true;
        if (deadline.hasExpired())
            return false;
        MainQueue::waitForPost(std::chrono::milliseconds(5));
    }
}

} // namespace quorval::test
