#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace quorval {

class SerialQueue;

// A repeating timer whose handler runs on a serial queue: first at once on resume(), then
// every interval on the steady clock. A tick still waiting on the queue absorbs the next one,
// so a slow handler never piles up ticks. Made suspended. resume()/suspend(): any thread;
// the destructor (not from the queue) stops the clock thread and waits for a tick under way.
class QueueTimer
{
public:
    QueueTimer(SerialQueue &queue, std::chrono::milliseconds interval,
               std::function<void()> handler);
    ~QueueTimer();
    QueueTimer(const QueueTimer &) = delete;
    QueueTimer &operator=(const QueueTimer &) = delete;

    void resume();
    void suspend();
    [[nodiscard]] bool isRunning() const;

private:
    void run();

    SerialQueue &queue;
    const std::chrono::milliseconds interval;
    const std::function<void()> handler;
    mutable std::mutex mutex;
    std::condition_variable wake;
    bool running = false;     // guarded by mutex
    bool tickPending = false; // guarded by mutex
    bool quitting = false;    // guarded by mutex
    std::thread clock;
};

} // namespace quorval
