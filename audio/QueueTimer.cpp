#include "audio/QueueTimer.h"

#include "streams/Quorval.h"
#include "streams/SerialQueue.h"

namespace quorval {

QueueTimer::QueueTimer(SerialQueue &queue, std::chrono::milliseconds interval,
                       std::function<void()> handler)
    : queue(queue), interval(interval), handler(std::move(handler)), clock([this] { run(); })
{
}

QueueTimer::~QueueTimer()
{
    {
        std::lock_guard lock(mutex);
        quitting = true;
        running = false;
    }
    wake.notify_all();
    clock.join();
    // A tick already posted still points here: let it pass before the handler goes. A stopped
    // queue has run or dropped its items already.
    if (!Quorval::isShuttingDown())
        queue.sync([] {});
}

void QueueTimer::resume()
{
    {
        std::lock_guard lock(mutex);
        running = true;
    }
    wake.notify_all();
}

void QueueTimer::suspend()
{
    std::lock_guard lock(mutex);
    running = false;
}

bool QueueTimer::isRunning() const
{
    std::lock_guard lock(mutex);
    return running;
}

void QueueTimer::run()
{
    std::unique_lock lock(mutex);
    for (;;) {
        wake.wait(lock, [this] { return running || quitting; });
        if (quitting)
            return;
        auto next = std::chrono::steady_clock::now();
        while (running && !quitting) {
            if (!tickPending) {
                tickPending = true;
                queue.async([this] {
                    {
                        std::lock_guard tickLock(mutex);
                        tickPending = false;
                        if (!running)
                            return;
                    }
                    handler();
                });
            }
            next += interval;
            wake.wait_until(lock, next, [this] { return !running || quitting; });
        }
    }
}

} // namespace quorval
