#include "streams/SerialQueue.h"

#include <sys/resource.h>
#include <unistd.h>

namespace quorval {

namespace {
// The queue whose worker this thread is, if any.
thread_local const SerialQueue *currentQueue = nullptr;
} // namespace

SerialQueue::SerialQueue(std::string label, int niceness) : labelText(std::move(label))
{
    worker = std::thread([this, niceness] { run(niceness); });
}

SerialQueue::~SerialQueue()
{
    stop();
}

bool SerialQueue::isCurrent() const
{
    return currentQueue == this;
}

void SerialQueue::async(std::function<void()> fn)
{
    {
        std::lock_guard lock(mutex);
        if (stopping)
            return;
        items.push_back(std::move(fn));
    }
    wake.notify_one();
}

void SerialQueue::runAndWait(const std::function<void()> &work)
{
    QUORVAL_CHECK(!isCurrent());
    std::mutex doneMutex;
    std::condition_variable doneSignal;
    bool done = false;
    {
        std::lock_guard lock(mutex);
        QUORVAL_CHECK(!stopping);
        // The caller waits below, so the item may refer to the caller's stack.
        items.push_back([&] {
            work();
            std::lock_guard doneLock(doneMutex);
            done = true;
            doneSignal.notify_one();
        });
    }
    wake.notify_one();
    std::unique_lock doneLock(doneMutex);
    doneSignal.wait(doneLock, [&] { return done; });
}

void SerialQueue::stop()
{
    {
        std::lock_guard lock(mutex);
        if (stopping && !worker.joinable())
            return;
        stopping = true;
    }
    wake.notify_one();
    QUORVAL_CHECK(!isCurrent());
    if (worker.joinable())
        worker.join();
}

void SerialQueue::run(int niceness)
{
    currentQueue = this;
    // On Linux a thread's nice value is its own; failure leaves it at the normal priority.
    if (niceness > 0)
        (void)setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), niceness);
    for (;;) {
        std::function<void()> item;
        {
            std::unique_lock lock(mutex);
            wake.wait(lock, [this] { return stopping || !items.empty(); });
            if (items.empty())
                return;
            item = std::move(items.front());
            items.pop_front();
        }
        item();
    }
}

} // namespace quorval
