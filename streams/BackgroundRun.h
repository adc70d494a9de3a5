#pragma once

#include "streams/Quorval.h"

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

namespace quorval {

// One computation at a time on a thread of its own, its result handed to the main queue. A new
// start cancels the one under way; a canceled run reports nothing, even when its result was
// already on its way. The owner's destructor cancels and waits.
template <class Result> class BackgroundRun
{
public:
    // Answers the result, or nothing when canceled (which it should check once per step).
    using Work = std::function<std::optional<Result>(const std::atomic<bool> &canceled)>;

    BackgroundRun() = default;
    ~BackgroundRun() { cancel(); }
    BackgroundRun(const BackgroundRun &) = delete;
    BackgroundRun &operator=(const BackgroundRun &) = delete;

    // Main thread.
    void start(Work work, std::function<void(const Result &)> done)
    {
        cancel();
        if (worker.joinable())
            worker.join();
        run = std::make_shared<Run>();
        worker =
            std::jthread([current = run, work = std::move(work), done = std::move(done)]() mutable {
                std::optional<Result> result = work(current->canceled);
                if (!result) {
                    current->finished = true;
                    return;
                }
                Quorval::postToMain([current, result = std::move(*result), done = std::move(done)] {
                    current->finished = true;
                    if (!current->canceled)
                        done(result);
                });
            });
    }
    // The running computation stops at its next step and reports nothing. Main thread.
    void cancel()
    {
        if (run)
            run->canceled = true;
    }
    // Started and not yet delivered or canceled. Main thread.
    [[nodiscard]] bool isRunning() const { return run && !run->finished && !run->canceled; }

private:
    struct Run
    {
        std::atomic<bool> canceled{false};
        std::atomic<bool> finished{false};
    };
    std::shared_ptr<Run> run;
    std::jthread worker; // declared last: joined before run goes
};

} // namespace quorval
