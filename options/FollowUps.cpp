#include "options/FollowUps.h"

#include <atomic>
#include <mutex>

namespace quorval {

namespace {

struct State
{
    std::mutex mutex;
    FollowUpHandlers handlers;
    std::atomic<int> resegment{0};
    std::atomic<int> recompute{0};
    std::atomic<int> recolor{0};
    std::atomic<int> redisplay{0};
};

State &state()
{
    static State s;
    return s;
}

void run(std::atomic<int> &count, std::function<void()> FollowUpHandlers::*member)
{
    ++count;
    std::function<void()> handler;
    {
        std::lock_guard lock(state().mutex);
        handler = state().handlers.*member;
    }
    if (handler)
        handler();
}

} // namespace

void setFollowUpHandlers(FollowUpHandlers handlers)
{
    std::lock_guard lock(state().mutex);
    state().handlers = std::move(handlers);
}

void requestResegment()
{
    run(state().resegment, &FollowUpHandlers::resegment);
}

void requestRecompute()
{
    run(state().recompute, &FollowUpHandlers::recompute);
}

void requestRecolor()
{
    run(state().recolor, &FollowUpHandlers::recolor);
}

void requestRedisplay()
{
    run(state().redisplay, &FollowUpHandlers::redisplay);
}

FollowUpCounts followUpCounts()
{
    State &s = state();
    return {s.resegment.load(), s.recompute.load(), s.recolor.load(), s.redisplay.load()};
}

void resetFollowUpCounts()
{
    State &s = state();
    s.resegment = 0;
    s.recompute = 0;
    s.recolor = 0;
    s.redisplay = 0;
}

} // namespace quorval
