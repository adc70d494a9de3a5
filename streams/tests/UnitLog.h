#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

namespace quorval::test {

// Records the unit codes; can hold the calculation at its first unit until released.
class UnitLog
{
public:
    explicit UnitLog(bool holdFirst = false) : holding(holdFirst) {}
    void operator()(std::int64_t code)
    {
        std::unique_lock lock(mutex);
        codes.push_back(code);
        changed.notify_all();
        changed.wait(lock, [this] { return !holding; });
    }
    bool waitForUnits(std::size_t count)
    {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(30),
                                [&] { return codes.size() >= count; });
    }
    void release()
    {
        std::lock_guard lock(mutex);
        holding = false;
        changed.notify_all();
    }
    std::vector<std::int64_t> snapshot()
    {
        std::lock_guard lock(mutex);
        return codes;
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::int64_t> codes;
    bool holding;
};

} // namespace quorval::test
