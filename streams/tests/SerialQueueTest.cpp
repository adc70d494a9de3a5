#include "streams/SerialQueue.h"

#include "streams/Quorval.h"
#include "streams/tests/Wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace quorval {
namespace {

TEST(SerialQueue, runsItemsInOrderOnOneThreadAndSyncReturnsResults)
{
    SerialQueue queue("test.order");
    std::vector<int> seen; // touched only on the queue
    std::set<std::thread::id> threads;
    for (int i = 0; i < 500; ++i)
        queue.async([&seen, &threads, i] {
            seen.push_back(i);
            threads.insert(std::this_thread::get_id());
        });
    const std::vector<int> copy = queue.sync([&seen] { return seen; });
    ASSERT_EQ(copy.size(), 500u);
    for (int i = 0; i < 500; ++i)
        EXPECT_EQ(copy[i], i);
    EXPECT_EQ(queue.sync([&threads] { return threads.size(); }), 1u);
    EXPECT_NE(queue.sync([] { return std::this_thread::get_id(); }), std::this_thread::get_id());
}

TEST(SerialQueue, nestedSyncRunsOnTheCallersThreadOnlyWhenTheQueueIsIdleAndKeepsOrder)
{
    SerialQueue outer("test.outer");
    SerialQueue inner("test.inner");
    EXPECT_FALSE(outer.isCurrent());
    // Idle: the item runs on outer's worker, which holds both queues meanwhile.
    const auto nested = outer.sync([&] {
        const bool outerHere = outer.isCurrent() && !inner.isCurrent();
        return inner.sync([&] {
            return std::make_pair(outerHere && inner.isCurrent() && outer.isCurrent(),
                                  std::this_thread::get_id());
        });
    });
    EXPECT_TRUE(nested.first);
    EXPECT_EQ(nested.second, outer.sync([] { return std::this_thread::get_id(); }));
    EXPECT_FALSE(outer.isCurrent() || inner.isCurrent());

    // Busy or with items waiting: the item waits its turn behind them.
    std::vector<int> order; // touched only on inner
    std::mutex gateMutex;
    std::condition_variable gateSignal;
    bool open = false;
    inner.async([&] {
        std::unique_lock lock(gateMutex);
        gateSignal.wait(lock, [&] { return open; });
        order.push_back(1);
    });
    inner.async([&order] { order.push_back(2); });
    EXPECT_TRUE(inner.hasWaitingItems()); // the second, at least
    std::thread opener([&] {
        {
            std::lock_guard lock(gateMutex);
            open = true;
        }
        gateSignal.notify_all();
    });
    outer.sync([&] { inner.sync([&order] { order.push_back(3); }); });
    opener.join();
    EXPECT_EQ(inner.sync([&order] { return order; }), (std::vector<int>{1, 2, 3}));
    EXPECT_FALSE(inner.hasWaitingItems());

    // Work posted while a caller holds the queue runs once the caller lets go.
    std::atomic<bool> ran{false};
    outer.sync([&] { inner.sync([&] { inner.async([&ran] { ran = true; }); }); });
    EXPECT_TRUE(test::waitUntil([&ran] { return ran.load(); }));

    // The main thread is no queue's worker: its syncs always go through the worker.
    EXPECT_NE(inner.sync([] { return std::this_thread::get_id(); }), std::this_thread::get_id());
}

TEST(SerialQueue, stopRunsWhatWasPostedThenDropsLaterPosts)
{
    std::atomic<int> count{0};
    SerialQueue queue("test.stop");
    for (int i = 0; i < 100; ++i)
        queue.async([&count] { ++count; });
    queue.stop();
    EXPECT_EQ(count.load(), 100);
    queue.async([&count] { ++count; });
    queue.stop();
    EXPECT_EQ(count.load(), 100);
}

TEST(SerialQueueDeathTest, syncOntoAQueueTheCallerHoldsIsFatal)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            SerialQueue queue("test.self");
            queue.sync([&queue] { queue.sync([] {}); });
        },
        "isCurrent");
    // Further out in a nested sync, run on the same thread.
    EXPECT_DEATH(
        {
            SerialQueue outer("test.outer");
            SerialQueue inner("test.inner");
            outer.sync([&] { inner.sync([&outer] { outer.sync([] {}); }); });
        },
        "isCurrent");
}

TEST(Quorval, ownsSixLabelledQueuesMadeOnce)
{
    std::set<std::string> labels;
    for (SerialQueue *queue :
         {&Quorval::dataQueue(), &Quorval::calcQueue(), &Quorval::crunchQueue(),
          &Quorval::copyQueue(), &Quorval::displayQueue(), &Quorval::realtimeQueue()}) {
        EXPECT_EQ(queue->label().rfind(Quorval::kQueuePrefix, 0), 0u);
        labels.insert(queue->label().substr(std::string(Quorval::kQueuePrefix).size()));
    }
    EXPECT_EQ(labels,
              (std::set<std::string>{"data", "calc", "crunch", "copy", "display", "realtime"}));
    EXPECT_EQ(&Quorval::dataQueue(), &Quorval::dataQueue());
}

TEST(Quorval, redisplayRunsAtOnceOnMainAndMergesRequestsFromQueues)
{
    std::atomic<int> redraws{0};
    Quorval::setRedisplayHandler([&redraws] { ++redraws; });
    ASSERT_TRUE(Quorval::isMainThread());
    Quorval::redisplay();
    EXPECT_EQ(redraws.load(), 1);

    Quorval::dataQueue().sync([] {
        EXPECT_FALSE(Quorval::isMainThread());
        for (int i = 0; i < 5; ++i)
            Quorval::redisplay();
    });
    EXPECT_EQ(redraws.load(), 1); // posted, not run
    EXPECT_TRUE(test::waitUntil([&redraws] { return redraws.load() == 2; }));
    // Run what else is pending: the five requests were merged into the one redraw.
    test::MainQueue::runPosted();
    EXPECT_EQ(redraws.load(), 2);

    // Once that redraw ran, a new request posts again.
    Quorval::dataQueue().sync([] { Quorval::redisplay(); });
    EXPECT_TRUE(test::waitUntil([&redraws] { return redraws.load() == 3; }));
    Quorval::setRedisplayHandler({});
}

} // namespace
} // namespace quorval
