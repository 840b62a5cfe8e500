#include <VeltoConnectFoundation/Platform/OperationQueue.h>

#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/Queue.h>

#include <Tests/Support/CapturedPlatformLog.h>
#include <Tests/Support/RunTogether.h>
#include <Tests/Support/WaitUntil.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <latch>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace velto {
namespace {

using ::testing::ElementsAre;

class Block final : public Operation {
public:
    explicit Block(std::function<void()> body) : body_(std::move(body)) {}
    void main() override { body_(); }

private:
    const std::function<void()> body_;
};

std::shared_ptr<Operation> block(std::function<void()> body) {
    return std::make_shared<Block>(std::move(body));
}

TEST(OperationQueue, RunsAllThatIsAddedFromManyThreads) {
    constexpr int threads = 4;
    constexpr int operations = 5000;
    const auto queue = OperationQueue::make();
    std::atomic<int> count{0};
    testing::runTogether(threads, [&](int) {
        for (int index = 0; index < operations; ++index) {
            queue->addOperation(block([&] { ++count; }));
        }
    });
    queue->waitUntilAllOperationsAreFinished();
    EXPECT_EQ(count, threads * operations);
    EXPECT_EQ(queue->operationCount(), 0U);
}

TEST(OperationQueue, BlockedOperationsKeepNoOtherFromStarting) {
    constexpr int blocked = 200;
    const auto queue = OperationQueue::make();
    std::latch allStarted(blocked);
    std::promise<void> release;
    const std::shared_future<void> released = release.get_future().share();
    for (int index = 0; index < blocked; ++index) {
        queue->addOperation(block([&, released] {
            allStarted.count_down();
            released.wait();
        }));
    }
    std::promise<void> ran;
    queue->addOperation(block([&] { ran.set_value(); }));
    ran.get_future().get();
    allStarted.wait();
    EXPECT_TRUE(testing::waitUntil([&] { return queue->operationCount() == blocked; }));
    release.set_value();
    queue->waitUntilAllOperationsAreFinished();
}

std::size_t poolThreads() {
    std::size_t count = 0;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::ifstream(thread.path() / "comm") >> name;
        count += name == "velto-pool" ? 1U : 0U;
    }
    return count;
}

TEST(OperationQueue, ThreadsBeyondTheCoresEndWhenTheyStayIdle) {
    const auto queue = OperationQueue::make();
    const std::size_t cores = std::thread::hardware_concurrency();
    std::latch meeting(static_cast<std::ptrdiff_t>(cores + 20));
    for (std::size_t index = 0; index < cores + 20; ++index) {
        queue->addOperation(block([&] { meeting.arrive_and_wait(); }));
    }
    queue->waitUntilAllOperationsAreFinished();
    EXPECT_GE(poolThreads(), cores + 20);
    EXPECT_TRUE(testing::waitUntil([&] { return poolThreads() <= cores; })) << poolThreads();
    // Those that are left still take work.
    queue->addOperation(block([] {}));
    queue->waitUntilAllOperationsAreFinished();
}

TEST(OperationQueue, StarvesNoneAmongAHundredThousandWithBlockingOnes) {
    constexpr int queues = 8;
    constexpr int operations = 100'000 / queues;
    std::vector<std::shared_ptr<OperationQueue>> all;
    for (int index = 0; index < queues; ++index) {
        all.push_back(OperationQueue::make());
    }
    // A queue's blocking operations wait for the last quick one of the next queue.
    std::vector<std::promise<void>> lasts(queues);
    std::vector<std::shared_future<void>> ends;
    for (auto& last : lasts) {
        ends.push_back(last.get_future().share());
    }
    std::atomic<int> ran{0};
    testing::runTogether(queues, [&](int thread) {
        const auto index = static_cast<std::size_t>(thread);
        const std::shared_future<void>& end = ends[(index + 1) % queues];
        for (int count = 1; count < operations; ++count) {
            const bool blocks = count % (operations / 20) == 0;
            all[index]->addOperation(block([&, blocks] {
                if (blocks) {
                    end.wait();
                }
                ++ran;
            }));
        }
        all[index]->addOperation(block([&, index] {
            ++ran;
            lasts[index].set_value();
        }));
    });
    for (const auto& queue : all) {
        queue->waitUntilAllOperationsAreFinished();
    }
    EXPECT_EQ(ran, queues * operations);
}

TEST(OperationQueue, KeepsToItsLimitAndInOrderWithALimitOfOne) {
    for (const std::size_t limit : {1U, 2U, 5U}) {
        SCOPED_TRACE(limit);
        const auto queue = OperationQueue::make();
        queue->setMaxConcurrentOperationCount(limit);
        std::atomic<int> running{0};
        std::atomic<int> most{0};
        std::vector<int> order;
        std::mutex mutex;
        for (int index = 0; index < 300; ++index) {
            queue->addOperation(block([&, index] {
                const int now = ++running;
                int before = most;
                while (before < now && !most.compare_exchange_weak(before, now)) {
                }
                {
                    const std::lock_guard guard(mutex);
                    order.push_back(index);
                }
                --running;
            }));
        }
        queue->waitUntilAllOperationsAreFinished();
        EXPECT_LE(most, static_cast<int>(limit));
        EXPECT_EQ(order.size(), 300U);
        if (limit == 1) {
            EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
        }
    }
}

TEST(OperationQueue, ARaisedLimitStartsWhatWasHeldBack) {
    const auto queue = OperationQueue::make();
    queue->setMaxConcurrentOperationCount(1);
    std::latch meeting(3);
    for (int index = 0; index < 3; ++index) {
        queue->addOperation(block([&] { meeting.arrive_and_wait(); }));
    }
    EXPECT_EQ(queue->operationCount(), 3U);
    queue->setMaxConcurrentOperationCount(0);
    queue->waitUntilAllOperationsAreFinished();
}

TEST(OperationQueue, NeverCallsMainOfACancelledOperation) {
    const auto queue = OperationQueue::make();
    queue->setMaxConcurrentOperationCount(1);
    std::promise<void> started;
    std::promise<void> release;
    const auto running = block([&] {
        started.set_value();
        release.get_future().wait();
    });
    std::vector<std::shared_ptr<Operation>> waiting;
    queue->addOperation(running);
    for (int index = 0; index < 10; ++index) {
        waiting.push_back(block([] { FAIL() << "main of a cancelled operation"; }));
        queue->addOperation(waiting.back());
    }
    started.get_future().wait();
    queue->cancelAllOperations();
    EXPECT_TRUE(running->isCancelled());
    release.set_value();
    queue->waitUntilAllOperationsAreFinished();
    for (const auto& operation : waiting) {
        EXPECT_TRUE(operation->isCancelled());
    }
}

TEST(OperationQueue, LetsGoOfAnOperationBeforeItCountsAsFinished) {
    const auto queue = OperationQueue::make();
    for (int round = 0; round < 200; ++round) {
        auto operation = block([] {});
        const std::weak_ptr<Operation> observed = operation;
        queue->addOperation(std::move(operation));
        queue->waitUntilAllOperationsAreFinished();
        ASSERT_TRUE(observed.expired());
    }
}

TEST(OperationQueue, OperationsOfAQueueThatIsGoneStillRun) {
    std::promise<void> release;
    std::promise<void> ran;
    {
        const auto queue = OperationQueue::make();
        queue->setMaxConcurrentOperationCount(1);
        queue->addOperation(block([&] { release.get_future().wait(); }));
        queue->addOperation(block([&] { ran.set_value(); }));
    }
    release.set_value();
    ran.get_future().get();
}

TEST(OperationQueue, WhatAnOperationThrowsIsLoggedAsCritical) {
    const testing::CapturedPlatformLog log;
    const auto queue = OperationQueue::make();
    queue->setMaxConcurrentOperationCount(1);
    queue->addOperation(block([] { throw std::runtime_error("no bread"); }));
    queue->addOperation(block([] { throw 1; }));
    queue->waitUntilAllOperationsAreFinished();
    EXPECT_THAT(log.lines(),
                ElementsAre("5 Uncaught exception in an operation: no bread",
                            "5 Uncaught exception in an operation: of an unknown kind"));
}

TEST(OperationQueue, RefusesNoneAndWhatHasBeenAdded) {
    const auto queue = OperationQueue::make();
    std::atomic<int> runs{0};
    const auto operation = block([&] { ++runs; });
    queue->addOperation(operation);
    EXPECT_THROW(queue->addOperation(operation), Exception);
    EXPECT_THROW(OperationQueue::make()->addOperation(operation), Exception);
    EXPECT_THROW(queue->addOperation(nullptr), Exception);
    queue->waitUntilAllOperationsAreFinished();
    EXPECT_EQ(runs, 1);
}

}  // namespace
}  // namespace velto
