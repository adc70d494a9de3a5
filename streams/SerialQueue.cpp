#include "streams/SerialQueue.h"

#include <sys/resource.h>
#include <unistd.h>

namespace quorval {

namespace {

// The queues whose items this thread is running, innermost first: a worker's own queue, then
// those it entered through sync().
struct Running
{
    const SerialQueue *queue;
    const Running *outer;
};
thread_local const Running *running = nullptr;
// Whether this thread may run other queues' items: a queue worker at normal priority, or a
// thread that asked to.
thread_local bool mayRunOthers = false;

// Marks queue as running on this thread for the lifetime of the object.
class Entered
{
public:
    explicit Entered(const SerialQueue *queue) : link{queue, running} { running = &link; }
    ~Entered() { running = link.outer; }
    Entered(const Entered &) = delete;
    Entered &operator=(const Entered &) = delete;

private:
    Running link;
};

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
    for (const Running *r = running; r != nullptr; r = r->outer) {
        if (r->queue == this)
            return true;
    }
    return false;
}

bool SerialQueue::hasWaitingItems() const
{
    std::lock_guard lock(mutex);
    return !items.empty();
}

void SerialQueue::async(std::function<void()> fn)
{
    bool idle = false;
    {
        std::lock_guard lock(mutex);
        if (stopping)
            return;
        items.push_back(std::move(fn));
        idle = !busy;
    }
    // A busy queue looks for more work when its item ends: waking the worker now would only
    // put it back to sleep.
    if (idle)
        wake.notify_one();
}

bool SerialQueue::runHereIfIdle(const std::function<void()> &work)
{
    {
        std::lock_guard lock(mutex);
        QUORVAL_CHECK(!stopping);
        if (busy || !items.empty())
            return false;
        busy = true;
    }
    // Idle again however work ends; the worker is woken only for what was posted meanwhile, a
    // wake-up with nothing to do being the very cost this saves.
    struct Release
    {
        SerialQueue &queue;
        ~Release()
        {
            bool pending = false;
            {
                std::lock_guard lock(queue.mutex);
                queue.busy = false;
                pending = queue.stopping || !queue.items.empty();
            }
            if (pending)
                queue.wake.notify_one();
        }
    } release{*this};
    const Entered entered(this);
    work();
    return true;
}

void SerialQueue::runAndWait(const std::function<void()> &work)
{
    QUORVAL_CHECK(!isCurrent());
    if (mayRunOthers && runHereIfIdle(work))
        return;
    std::mutex doneMutex;
    std::condition_variable doneSignal;
    bool done = false;
    bool idle = false;
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
        idle = !busy;
    }
    if (idle)
        wake.notify_one();
    std::unique_lock doneLock(doneMutex);
    doneSignal.wait(doneLock, [&] { return done; });
}

void SerialQueue::letThisThreadRunItems()
{
    mayRunOthers = true;
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
    const Entered entered(this);
    // On Linux a thread's nice value is its own; failure leaves it at the normal priority. A
    // thread below normal priority never holds another queue: a thread at normal priority
    // waiting for it would wait on background work.
    if (niceness > 0)
        (void)setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), niceness);
    mayRunOthers = niceness <= 0;
    for (;;) {
        std::function<void()> item;
        {
            std::unique_lock lock(mutex);
            // An item run by a caller holds the queue until it ends.
            wake.wait(lock, [this] { return !busy && (stopping || !items.empty()); });
            if (items.empty())
                return;
            item = std::move(items.front());
            items.pop_front();
            busy = true;
        }
        item();
        {
            std::lock_guard lock(mutex);
            busy = false;
        }
    }
}

} // namespace quorval
