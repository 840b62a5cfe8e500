#include <VeltoConnectFoundation/Platform/Queue.h>

#include <VeltoConnectFoundation/Platform/RunLoop.h>

#include <Tests/Support/CapturedPlatformLog.h>
#include <Tests/Support/RunTogether.h>
#include <Tests/Support/WaitUntil.h>

#include <gmock/gmock.h>

#include <atomic>
#include <future>
#include <latch>
#include <stdexcept>
#include <thread>
#include <vector>

namespace velto {
namespace {

using ::testing::ElementsAre;

constexpr Seconds forever{1e9};

TEST(SerialQueue, RunsPiecesOfManyThreadsOneAtATimeAndEachThreadsInOrder) {
    constexpr int threads = 4;
    constexpr int pieces = 10000;
    const auto queue = SerialQueue::make("test");
    std::vector<int> last(threads, -1);
    int count = 0;  // No lock: the queue is the protection.
    std::atomic<int> outOfOrder{0};
    testing::runTogether(threads, [&](int thread) {
        for (int piece = 0; piece < pieces; ++piece) {
            const auto work = [&, thread, piece] {
                int& before = last[static_cast<std::size_t>(thread)];
                outOfOrder += before == piece - 1 ? 0 : 1;
                before = piece;
                ++count;
            };
            if (piece % 16 == thread) {
                queue->sync(work);
            } else {
                queue->async(work);
            }
        }
    });
    queue->sync([] {});
    EXPECT_EQ(count, threads * pieces);
    EXPECT_EQ(outOfOrder, 0);
}

TEST(SerialQueue, IsCurrentInsideItsWorkOnly) {
    const auto outer = SerialQueue::make("outer");
    const auto inner = SerialQueue::make("inner");
    EXPECT_FALSE(outer->isCurrent());
    std::promise<void> ran;
    outer->async([&] {
        EXPECT_TRUE(outer->isCurrent());
        EXPECT_FALSE(inner->isCurrent());
        inner->sync([&] { EXPECT_TRUE(inner->isCurrent()); });
        EXPECT_FALSE(inner->isCurrent());
        ran.set_value();
    });
    ran.get_future().get();
    outer->sync([&] { EXPECT_TRUE(outer->isCurrent()); });
    EXPECT_FALSE(outer->isCurrent());
}

TEST(SerialQueue, SyncRunsInlineInsideItsOwnWork) {
    const auto queue = SerialQueue::make("test");
    std::vector<int> order;
    std::promise<void> ran;
    queue->async([&] {
        order.push_back(1);
        queue->sync([&] {
            order.push_back(2);
            queue->sync([&] { order.push_back(3); });
        });
        order.push_back(4);
        ran.set_value();
    });
    ran.get_future().get();
    EXPECT_THAT(order, ElementsAre(1, 2, 3, 4));
}

TEST(SerialQueue, WhatSyncWorkThrowsReachesTheCallerAndTheQueueGoesOn) {
    const auto queue = SerialQueue::make("test");
    EXPECT_THROW(queue->sync([] { throw std::runtime_error("at rest"); }), std::runtime_error);

    std::promise<void> release;
    queue->async([&] { release.get_future().wait(); });
    std::thread releaser([&] { release.set_value(); });
    EXPECT_THROW(queue->sync([] { throw std::runtime_error("busy"); }), std::runtime_error);
    releaser.join();
    bool ran = false;
    queue->sync([&] { ran = true; });
    EXPECT_TRUE(ran);
}

TEST(SerialQueue, WhatAsyncWorkThrowsIsLoggedAsCritical) {
    const testing::CapturedPlatformLog log;
    const auto queue = SerialQueue::make("the test queue");
    queue->async([] { throw std::runtime_error("no bread"); });
    queue->sync([] {});
    EXPECT_THAT(log.lines(), ElementsAre("5 Uncaught exception in the test queue: no bread"));
}

TEST(SerialQueue, WorkAlreadyQueuedRunsWhenTheQueueIsLetGoOf) {
    std::promise<void> release;
    std::promise<int> second;
    auto queue = SerialQueue::make("test");
    queue->async([&] { release.get_future().wait(); });
    queue->async([&] { second.set_value(2); });
    queue.reset();
    release.set_value();
    EXPECT_EQ(second.get_future().get(), 2);
}

TEST(SerialQueue, ABlockedQueueKeepsNoOtherFromRunning) {
    constexpr int queues = 40;
    std::latch allBlocked(queues + 1);
    std::vector<std::shared_ptr<SerialQueue>> blocked;
    for (int index = 0; index < queues; ++index) {
        blocked.push_back(SerialQueue::make("blocked"));
        blocked.back()->async([&] { allBlocked.arrive_and_wait(); });
    }
    const auto other = SerialQueue::make("other");
    std::promise<void> ran;
    other->async([&] { ran.set_value(); });
    ran.get_future().get();
    allBlocked.arrive_and_wait();
    for (const auto& queue : blocked) {
        queue->sync([] {});
    }
}

TEST(MainQueue, RunsInOrderOnOneThreadThatKnowsItself) {
    MainQueue& queue = MainQueue::shared();
    EXPECT_FALSE(MainQueue::isMainThread());
    std::vector<int> order;
    std::thread::id first;
    queue.async([&] {
        first = std::this_thread::get_id();
        order.push_back(1);
    });
    queue.async([&] { order.push_back(2); });
    queue.sync([&] {
        order.push_back(3);
        EXPECT_TRUE(MainQueue::isMainThread());
        EXPECT_EQ(std::this_thread::get_id(), first);
        queue.sync([&] { order.push_back(4); });
    });
    EXPECT_THAT(order, ElementsAre(1, 2, 3, 4));
    EXPECT_NE(first, std::this_thread::get_id());
    MainQueue::runOnOwnThread();
    EXPECT_TRUE(queue.hasOwnThread());
}

TEST(MainQueue, ItsThreadsLoopRunsItsHome) {
    MainQueue& queue = MainQueue::shared();
    std::vector<int> order;
    queue.async([&] {
        // The next piece is delivered inside of this one, which spins its loop.
        EXPECT_TRUE(RunLoop::current()->run(forever, [&] { return order.size() == 1; }));
        order.push_back(2);
    });
    queue.async([&] { order.push_back(1); });
    queue.sync([] {});
    EXPECT_TRUE(testing::waitUntil([&] {
        bool ended = false;
        queue.sync([&] { ended = order.size() == 2; });
        return ended;
    }));
    EXPECT_THAT(order, ElementsAre(1, 2));
}

TEST(MainQueue, WhatWorkThrowsIsLoggedOrReachesTheSyncCaller) {
    const testing::CapturedPlatformLog log;
    MainQueue& queue = MainQueue::shared();
    queue.async([] { throw std::runtime_error("async"); });
    EXPECT_THROW(queue.sync([] { throw std::logic_error("sync"); }), std::logic_error);
    queue.async([] { RunLoop::current()->perform([] { throw std::runtime_error("loop"); }); });
    EXPECT_TRUE(testing::waitUntil([&] { return log.lines().size() == 2; }));
    EXPECT_THAT(log.lines(), ElementsAre("5 Uncaught exception in the main queue: async",
                                         "5 Uncaught exception in the main thread's loop: loop"));
}

TEST(MainQueue, ACancelEndsTheWaitAndWorkThatHasNotBegunNeverRuns) {
    MainQueue& queue = MainQueue::shared();
    std::promise<void> release;
    queue.async([&] { release.get_future().wait(); });
    std::atomic<bool> asked{false};
    std::atomic<bool> cancelled{false};
    std::thread canceller([&] {
        asked.wait(false);
        cancelled = true;
        queue.wakeWaiters();
    });
    const auto ran = std::make_shared<std::atomic<bool>>(false);
    EXPECT_FALSE(queue.sync([ran] { *ran = true; },
                            [&] {
                                asked = true;
                                asked.notify_one();
                                return cancelled.load();
                            }));
    canceller.join();
    release.set_value();
    queue.sync([] {});
    EXPECT_FALSE(*ran);
    EXPECT_TRUE(queue.sync([ran] { *ran = true; }, [] { return false; }));
    EXPECT_TRUE(*ran);
}

TEST(MainQueue, TakesWorkOfManyThreads) {
    constexpr int threads = 4;
    constexpr int pieces = 2000;
    MainQueue& queue = MainQueue::shared();
    int count = 0;  // No lock: the queue is the protection.
    testing::runTogether(threads, [&](int thread) {
        for (int piece = 0; piece < pieces; ++piece) {
            if (piece % 8 == thread) {
                queue.sync([&] { ++count; });
            } else {
                queue.async([&] { ++count; });
            }
        }
    });
    queue.sync([] {});
    EXPECT_EQ(count, threads * pieces);
}

}  // namespace
}  // namespace velto
