#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/Queue.h>
#include <VeltoConnectFoundation/Platform/RunLoop.h>

#include <Tests/Support/CapturedPlatformLog.h>
#include <Tests/Support/FreshProcess.h>
#include <Tests/Support/RunTogether.h>
#include <Tests/Support/WaitUntil.h>

#include <glib.h>
#include <gmock/gmock.h>

#include <future>
#include <stdexcept>
#include <thread>
#include <vector>

/// The main queue of a host that has not chosen a thread of the library's own: its home is GLib's
/// default main context, which the first thread's loop runs.
namespace velto {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr Seconds forever{1e9};

TEST(MainQueueHome, SyncStaysOnTheCallersThreadAsLongAsNobodyDispatches) {
    if (testing::ranInFreshProcess()) {
        return;
    }
    MainQueue& queue = MainQueue::shared();
    int count = 0;  // No lock: the queue is the protection, even without a main thread.
    testing::runTogether(4, [&](int) {
        for (int piece = 0; piece < 1000; ++piece) {
            queue.sync([&, caller = std::this_thread::get_id()] {
                EXPECT_EQ(std::this_thread::get_id(), caller);
                EXPECT_TRUE(MainQueue::isMainThread());
                ++count;
                queue.sync([&] { ++count; });
            });
            EXPECT_FALSE(MainQueue::isMainThread());
        }
    });
    EXPECT_EQ(count, 8000);
    EXPECT_THROW(queue.sync([] { throw std::logic_error("sync"); }), std::logic_error);
    EXPECT_THROW(MainQueue::runOnOwnThread(), Exception);
    EXPECT_FALSE(queue.hasOwnThread());
}

TEST(MainQueueHome, TheDefaultContextDeliversOnceItRuns) {
    if (testing::ranInFreshProcess()) {
        return;
    }
    MainQueue& queue = MainQueue::shared();
    const std::thread::id mainThread = std::this_thread::get_id();
    std::vector<int> order;
    std::thread([&] {
        for (int piece = 1; piece <= 3; ++piece) {
            queue.async([&, piece] {
                EXPECT_EQ(std::this_thread::get_id(), mainThread);
                order.push_back(piece);
            });
        }
    }).join();
    EXPECT_TRUE(order.empty());
    EXPECT_TRUE(RunLoop::current()->run(forever, [&] { return order.size() == 3; }));
    EXPECT_THAT(order, ElementsAre(1, 2, 3));
    EXPECT_TRUE(MainQueue::isMainThread());

    // From now on others wait for the loop, and their cancel ends the wait.
    bool ended = false;
    std::thread caller([&] {
        queue.sync([&] { EXPECT_EQ(std::this_thread::get_id(), mainThread); });
        EXPECT_FALSE(queue.sync([] { FAIL(); }, [] { return true; }));
        queue.async([&] { ended = true; });
    });
    EXPECT_TRUE(RunLoop::current()->run(forever, [&] { return ended; }));
    caller.join();
    queue.sync([&] { order.push_back(4); });  // Inline: nobody runs the loop now.
    EXPECT_EQ(order.size(), 4U);
    EXPECT_THROW(MainQueue::runOnOwnThread(), Exception);
}

TEST(MainQueueHome, ALoopThatRanWithoutAnyWorkCounts) {
    if (testing::ranInFreshProcess()) {
        return;
    }
    MainQueue& queue = MainQueue::shared();
    EXPECT_FALSE(RunLoop::current()->run(Seconds(0)));
    const std::thread::id mainThread = std::this_thread::get_id();
    bool ended = false;
    std::thread caller([&] {
        queue.sync([&] {
            EXPECT_EQ(std::this_thread::get_id(), mainThread);
            ended = true;
        });
    });
    EXPECT_TRUE(RunLoop::current()->run(forever, [&] { return ended; }));
    caller.join();
}

TEST(MainQueueHome, WhoRunsTheDefaultContextIsMainAndTheFirstThreadWaitsByItself) {
    if (testing::ranInFreshProcess()) {
        return;
    }
    // One that is there before the host's loop runs elsewhere, and delivers from the default
    // context.
    const auto loop = RunLoop::current();
    GMainLoop* const hostLoop = g_main_loop_new(nullptr, FALSE);
    std::thread host([&] { g_main_loop_run(hostLoop); });
    while (g_main_loop_is_running(hostLoop) == FALSE) {
        std::this_thread::yield();
    }
    const std::thread::id first = std::this_thread::get_id();
    bool isDone = false;
    MainQueue::shared().async([&] {
        EXPECT_EQ(std::this_thread::get_id(), host.get_id());
        loop->perform([&] {
            EXPECT_EQ(std::this_thread::get_id(), first);
            isDone = true;
        });
    });
    EXPECT_TRUE(loop->run(forever, [&] { return isDone; }));
    EXPECT_FALSE(loop->run(Seconds(0.01)));
    EXPECT_FALSE(MainQueue::isMainThread());
    MainQueue::shared().sync([&] { EXPECT_EQ(std::this_thread::get_id(), host.get_id()); });
    g_main_loop_quit(hostLoop);
    host.join();
    g_main_loop_unref(hostLoop);
}

TEST(MainQueueHome, OnceWhoRanTheDefaultContextHasStoppedTheFirstThreadRunsItAgain) {
    if (testing::ranInFreshProcess()) {
        return;
    }
    MainQueue& queue = MainQueue::shared();
    const auto runElsewhere = [] {
        std::thread([] { g_main_context_iteration(nullptr, FALSE); }).join();
    };
    runElsewhere();
    bool isDone = false;
    queue.async([&] { isDone = true; });
    EXPECT_TRUE(RunLoop::current()->run(forever, [&] { return isDone; }));
    runElsewhere();  // Nothing is asked for: the first thread stays the main one.
    EXPECT_TRUE(MainQueue::isMainThread());

    queue.async([] {});
    runElsewhere();
    EXPECT_FALSE(MainQueue::isMainThread());
    // Threads that take the place of the one that has ended are not the one.
    for (int count = 0; count < 20; ++count) {
        std::thread([&] {
            EXPECT_FALSE(MainQueue::isMainThread());
            EXPECT_FALSE(queue.sync([] { FAIL(); }, [] { return true; }));
        }).join();
    }
    isDone = false;
    queue.sync([&] { isDone = MainQueue::isMainThread(); });
    EXPECT_TRUE(isDone);
}

TEST(MainQueueHome, TheFirstThreadTakesOverFromALoopThatEndsWhileItWaits) {
    if (testing::ranInFreshProcess()) {
        return;
    }
    MainQueue& queue = MainQueue::shared();
    for (const bool isSynchronous : {true, false}) {
        SCOPED_TRACE(isSynchronous);
        std::promise<void> held;
        std::promise<void> waits;
        std::thread host([&] {
            ASSERT_NE(g_main_context_acquire(nullptr), FALSE);
            queue.async([] {});
            g_main_context_iteration(nullptr, FALSE);
            held.set_value();
            waits.get_future().wait();
            g_main_context_release(nullptr);
        });
        held.get_future().wait();
        EXPECT_FALSE(MainQueue::isMainThread());
        bool isDone = false;
        if (isSynchronous) {
            int asked = 0;
            EXPECT_TRUE(queue.sync([&] { isDone = true; },
                                   [&] {
                                       if (++asked == 2) {
                                           waits.set_value();
                                       }
                                       return false;
                                   }));
        } else {
            RunLoop::current()->perform([&] {
                queue.async([&] { isDone = true; });
                waits.set_value();
            });
            EXPECT_TRUE(RunLoop::current()->run(forever, [&] { return isDone; }));
        }
        EXPECT_TRUE(isDone);
        EXPECT_TRUE(MainQueue::isMainThread());
        host.join();
    }
}

TEST(MainQueueHome, WorkThatNobodyDispatchesIsReportedOnce) {
    if (testing::ranInFreshProcess()) {
        return;
    }
    const testing::CapturedPlatformLog log;
    const auto start = std::chrono::steady_clock::now();
    MainQueue::shared().async([] {});
    MainQueue::shared().async([] {});
    ASSERT_TRUE(testing::waitUntil([&] { return !log.lines().empty(); }));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("velto::MainQueue::runOnOwnThread()")));
}

}  // namespace
}  // namespace velto
