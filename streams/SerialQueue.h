#pragma once

#include "analysis/Check.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

namespace quorval {

// A serial work queue: items run one at a time, in the order they were posted.
//
// async() returns at once and the queue's worker thread runs the item. sync() blocks the caller
// until the item has run and hands back its result. When the caller is itself running an item of
// another queue (calc waiting on crunch, crunch on data) and this queue is idle, sync() runs the
// item on the caller's thread while holding the queue, rather than waking the worker and
// sleeping: the same order and exclusion without two thread switches per item. Calls from other
// threads (the main thread among them, unless letThisThreadRunItems() said otherwise) and from a
// queue running below normal priority always go through the worker.
//
// A sync() onto a queue the caller is already running an item of (directly, or further out in
// nested syncs) would wait for itself, so it is a broken invariant (fatal), never a silent
// deadlock. Any thread may post.
//
// stop() lets the items already posted run, then joins the worker; items posted afterwards are
// dropped (async) or fatal (sync). The destructor stops. Not copyable.
class SerialQueue
{
public:
    // niceness > 0 runs the worker below the other threads' priority (as the system's nice
    // value does for a process), for background work that must not crowd out the display's.
    explicit SerialQueue(std::string label, int niceness = 0);
    ~SerialQueue();
    SerialQueue(const SerialQueue &) = delete;
    SerialQueue &operator=(const SerialQueue &) = delete;

    [[nodiscard]] const std::string &label() const { return labelText; }

    // True when called from an item of this queue, including from a sync() nested inside it.
    [[nodiscard]] bool isCurrent() const;

    // Whether items wait to run (not counting one running): long work on the queue checks it to
    // make way. Any thread.
    [[nodiscard]] bool hasWaitingItems() const;

    // Posts fn and returns at once. Dropped when the queue has stopped.
    void async(std::function<void()> fn);

    // Runs fn on the queue and returns its result once it has run.
    template <class F> auto sync(F &&fn) -> std::invoke_result_t<F &>
    {
        using Result = std::invoke_result_t<F &>;
        if constexpr (std::is_void_v<Result>) {
            runAndWait([&fn] { fn(); });
        } else {
            std::optional<Result> result;
            runAndWait([&fn, &result] { result.emplace(fn()); });
            return std::move(*result);
        }
    }

    // Lets the calling thread, a worker of the caller's own at normal priority, run idle queues'
    // items as queue workers do. Not for the main thread, whose work must not run inside items.
    static void letThisThreadRunItems();

    // Runs what is already posted, then joins the worker. Idempotent; not from the worker itself.
    void stop();

private:
    void run(int niceness);
    void runAndWait(const std::function<void()> &work);
    // Runs work on the calling thread if the queue is idle; false when it is not.
    bool runHereIfIdle(const std::function<void()> &work);

    std::string labelText;
    mutable std::mutex mutex;
    std::condition_variable wake;
    std::deque<std::function<void()>> items; // guarded by mutex
    bool stopping = false;                   // guarded by mutex
    bool busy = false;                       // an item is running; guarded by mutex
    std::thread worker;
};

} // namespace quorval
