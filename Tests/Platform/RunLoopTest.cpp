#include <VeltoConnectFoundation/Platform/RunLoop.h>

#include <Tests/Support/RunTogether.h>

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>
#include <thread>
#include <vector>

namespace velto {
namespace {

using ::testing::ElementsAre;

constexpr Seconds forever{1e9};

Seconds timed(const std::function<void()>& body) {
    const auto start = std::chrono::steady_clock::now();
    body();
    return std::chrono::steady_clock::now() - start;
}

TEST(RunLoop, RunsUntilTheLimitAndNotShorter) {
    const auto loop = RunLoop::current();
    for (const double limit : {0.0, 0.001, 0.05}) {
        SCOPED_TRACE(limit);
        bool answer = true;
        EXPECT_GE(timed([&] { answer = loop->run(Seconds(limit)); }), Seconds(limit));
        EXPECT_FALSE(answer);
    }
}

TEST(RunLoop, IsTheSameOneForAThreadAndAnotherForTheNext) {
    const auto mine = RunLoop::current();
    EXPECT_EQ(RunLoop::current(), mine);
    EXPECT_TRUE(mine->isCurrent());
    std::thread([&] {
        EXPECT_NE(RunLoop::current(), mine);
        EXPECT_FALSE(mine->isCurrent());
    }).join();
}

TEST(RunLoop, AsksWhetherItIsDoneAtTheStartAndAfterEachTurn) {
    const auto loop = RunLoop::current();
    EXPECT_TRUE(loop->run(forever, [] { return true; }));
    int turns = 0;
    for (int count = 0; count < 3; ++count) {
        loop->perform([&] { ++turns; });
    }
    EXPECT_TRUE(loop->run(forever, [&] { return turns == 2; }));
    EXPECT_EQ(turns, 2);
    EXPECT_TRUE(loop->run(forever, [&] { return turns == 3; }));
}

TEST(RunLoop, AWakeUpEndsTheRunUnderWayOrElseTheNext) {
    const auto loop = RunLoop::current();
    loop->wake();
    EXPECT_FALSE(loop->run(forever));

    std::atomic<bool> runs{false};
    std::thread waker([&] {
        runs.wait(false);
        loop->wake();
    });
    loop->perform([&] {
        runs = true;
        runs.notify_one();
    });
    EXPECT_FALSE(loop->run(forever));
    waker.join();
}

TEST(RunLoop, DeliversFromManyThreadsEachInOrder) {
    constexpr int threads = 4;
    constexpr int pieces = 5000;
    const auto loop = RunLoop::current();
    std::vector<int> last(threads, -1);
    int delivered = 0;
    bool inOrder = true;
    std::thread posters([&] {
        testing::runTogether(threads, [&](int thread) {
            for (int piece = 0; piece < pieces; ++piece) {
                loop->perform([&, thread, piece] {
                    int& before = last[static_cast<std::size_t>(thread)];
                    inOrder = inOrder && before == piece - 1;
                    before = piece;
                    ++delivered;
                });
            }
        });
    });
    EXPECT_TRUE(loop->run(forever, [&] { return delivered == threads * pieces; }));
    EXPECT_TRUE(inOrder);
    posters.join();
}

TEST(RunLoop, ARunInsideOfAPieceDeliversTheNextPieces) {
    const auto loop = RunLoop::current();
    std::vector<int> order;
    loop->perform([&] {
        order.push_back(1);
        EXPECT_TRUE(loop->run(forever, [&] { return order.size() == 2; }));
        order.push_back(3);
    });
    loop->perform([&] { order.push_back(2); });
    EXPECT_TRUE(loop->run(forever, [&] { return order.size() == 3; }));
    EXPECT_THAT(order, ElementsAre(1, 2, 3));
}

TEST(RunLoop, WhatAPieceThrowsLeavesItsRunAndTheLoopGoesOn) {
    const auto loop = RunLoop::current();
    bool next = false;
    loop->perform([] { throw std::runtime_error("piece"); });
    loop->perform([&] { next = true; });
    EXPECT_THROW(loop->run(forever), std::runtime_error);
    EXPECT_FALSE(next);
    EXPECT_TRUE(loop->run(forever, [&] { return next; }));

    // Out of the inner run first, then of the outer one, for the piece lets it through.
    loop->perform([&] {
        loop->perform([] { throw std::logic_error("inner"); });
        loop->run(forever);
    });
    EXPECT_THROW(loop->run(forever), std::logic_error);
}

TEST(RunLoop, WorkForAThreadThatHasEndedIsDropped) {
    std::shared_ptr<RunLoop> loop;
    const auto held = std::make_shared<int>(1);
    std::thread([&] {
        loop = RunLoop::current();
        loop->perform([held] {});
    }).join();
    EXPECT_EQ(held.use_count(), 1);
    loop->perform([held] { FAIL(); });
    EXPECT_EQ(held.use_count(), 1);
    loop->wake();
}

}  // namespace
}  // namespace velto
