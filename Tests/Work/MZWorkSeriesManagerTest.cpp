#include <VeltoConnectFoundation/Work/MZWorkSeriesManager.h>

#include <Tests/Work/TestWorkers.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using velto::testing::EndCounter;
using velto::testing::FunctionWorker;
using velto::testing::Gate;
using velto::testing::seriesOf;
using velto::testing::worker;
using Status = MZWorkItemStatus;

std::shared_ptr<MZWorkSeries> typed(std::shared_ptr<MZWorkSeries> series, std::int64_t type) {
    series->setType(type);
    return series;
}

/// A manager, and who counts the ends of its series down.
std::pair<std::shared_ptr<MZWorkSeriesManager>, std::shared_ptr<EndCounter>> countingManager(
    std::size_t count) {
    auto manager = velto::make<MZWorkSeriesManager>();
    auto counter = std::make_shared<EndCounter>(count);
    manager->setDelegate(counter);
    return {manager, counter};
}

TEST(WorkSeriesManager, ThrottlesByType) {
    const auto [manager, counter] = countingManager(3);
    manager->setThrottle(1, 5);
    Gate mayEnd;
    auto first = typed(seriesOf({worker([&](FunctionWorker&) { mayEnd.wait(); })}), 5);
    auto second = typed(seriesOf({worker()}), 5);
    auto other = typed(seriesOf({worker()}), 6);
    manager->submitWork(first);
    manager->submitWork(second);
    EXPECT_EQ(second->status(), Status::pending);
    manager->submitWork(other);
    EXPECT_NE(other->status(), Status::pending);
    EXPECT_EQ(manager->activeWork().front(), second) << "pending before active";
    mayEnd.open();
    ASSERT_TRUE(counter->ended.wait());
    EXPECT_EQ(second->status(), Status::completed);
    EXPECT_TRUE(manager->activeWork().empty());
    EXPECT_EQ(manager->allWork().size(), 3U);
}

TEST(WorkSeriesManager, AWiderThrottleStartsWhatItAllows) {
    const auto [manager, counter] = countingManager(3);
    manager->setThrottle(0, 5);
    for (int i = 0; i < 3; ++i) {
        manager->submitWork(typed(seriesOf({worker()}), 5));
    }
    EXPECT_EQ(manager->activeWork().size(), 3U);
    manager->setThrottle(std::nullopt, 5);
    EXPECT_TRUE(counter->ended.wait());
    EXPECT_EQ(manager->throttleForType(5), std::nullopt);
}

TEST(WorkSeriesManager, ACancelledPendingSeriesBlocksNothing) {
    const auto [manager, counter] = countingManager(3);
    manager->setThrottle(1, 5);
    Gate mayEnd;
    bool ran = false;
    manager->submitWork(typed(seriesOf({worker([&](FunctionWorker&) { mayEnd.wait(); })}), 5));
    auto cancelled = typed(seriesOf({worker([&](FunctionWorker&) { ran = true; })}), 5);
    auto last = typed(seriesOf({worker()}), 5);
    manager->submitWork(cancelled);
    manager->submitWork(last);
    cancelled->cancel();
    EXPECT_EQ(manager->completedWork().size(), 1U);
    mayEnd.open();
    ASSERT_TRUE(counter->ended.wait());
    EXPECT_FALSE(ran);
    EXPECT_EQ(last->status(), Status::completed);

    auto before = seriesOf({worker()});
    before->cancel();
    manager->submitWork(before);
    EXPECT_TRUE(manager->activeWork().empty()) << "one that ended before it was submitted";
}

TEST(WorkSeriesManager, RemembersOneMoreThanItsMaximum) {
    auto manager = velto::make<MZWorkSeriesManager>();
    EXPECT_EQ(manager->maxCompletedWork(), 10);
    manager->setMaxCompletedWork(3);
    std::vector<std::shared_ptr<MZWorkSeries>> all;
    for (int i = 0; i < 6; ++i) {
        all.push_back(seriesOf({}));
        manager->submitWork(all.back());
    }
    EXPECT_THAT(manager->completedWork(), testing::ElementsAre(all[2], all[3], all[4], all[5]));
    manager->removeSeriesFromCompletedWork(all[3]);
    EXPECT_EQ(manager->completedWork().size(), 3U);
    manager->clearCompletedWork();
    EXPECT_TRUE(manager->allWork().empty());
}

TEST(WorkSeriesManager, CancelsAllWorkUnheardAndKeepsTheThrottleUntilItHasEnded) {
    const auto [manager, counter] = countingManager(1);
    manager->setThrottle(1, 5);
    Gate running;
    Gate mayEnd;
    auto active = typed(seriesOf({worker([&](FunctionWorker&) {
                            running.open();
                            mayEnd.wait();
                        })}),
                        5);
    auto pending = typed(seriesOf({worker()}), 5);
    manager->submitWork(active);
    manager->submitWork(pending);
    running.wait();
    manager->cancelAllWork();
    EXPECT_TRUE(manager->activeWork().empty());
    EXPECT_THAT(manager->completedWork(), testing::ElementsAre(pending, active));
    auto next = typed(seriesOf({worker()}), 5);
    manager->submitWork(next);
    EXPECT_EQ(next->status(), Status::pending) << "the cancelled one still runs";
    mayEnd.open();
    ASSERT_TRUE(counter->ended.wait());
    EXPECT_EQ(next->status(), Status::completed);
    EXPECT_EQ(manager->completedWork().size(), 3U);
}

TEST(WorkSeriesManager, ASeriesThatIsSubmittedTwiceCountsOnce) {
    const auto [manager, counter] = countingManager(2);
    Gate mayEnd;
    auto twice = typed(seriesOf({worker([&](FunctionWorker&) { mayEnd.wait(); })}), 5);
    manager->submitWork(twice);
    manager->submitWork(twice);
    manager->setThrottle(1, 5);
    manager->submitWork(twice);
    EXPECT_THAT(manager->activeWork(), testing::ElementsAre(twice));
    mayEnd.open();
    manager->submitWork(typed(seriesOf({worker()}), 5));
    EXPECT_TRUE(counter->ended.wait()) << "the first one's place is free again";
    EXPECT_TRUE(manager->activeWork().empty());
}

TEST(WorkSeriesManager, AHeldBackEmptySeriesEndsWhenAllIsCancelledAndNothingEndsTwice) {
    const auto [manager, counter] = countingManager(2);
    manager->setThrottle(0, 5);
    auto heldBack = typed(seriesOf({}), 5);
    manager->submitWork(heldBack);
    manager->cancelAllWork();
    EXPECT_EQ(heldBack->status(), Status::completed);
    EXPECT_TRUE(heldBack->completeTime());
    manager->submitWork(heldBack);
    auto endedBefore = seriesOf({worker()});
    endedBefore->cancel();
    manager->submitWork(endedBefore);
    manager->submitWork(endedBefore);
    EXPECT_THAT(manager->completedWork(), testing::ElementsAre(heldBack, endedBefore));
    EXPECT_FALSE(counter->ended.wait(std::chrono::seconds(0))) << "one was told, and once";
}

TEST(WorkSeriesManager, OneThatIsGoneHidesNoOtherAndASetStatusNoEnd) {
    const auto [manager, counter] = countingManager(2);
    manager->setThrottle(1, 5);
    auto gone = velto::make<MZWorkSeriesManager>();
    gone->setThrottle(0, 5);
    auto series = typed(seriesOf({worker()}), 5);
    auto next = typed(seriesOf({worker()}), 5);
    series->setStatus(Status::completed);
    gone->submitWork(series);
    manager->submitWork(series);
    manager->submitWork(next);
    gone.reset();
    EXPECT_TRUE(counter->ended.wait());
    EXPECT_TRUE(series->completeTime());
}

/// Submits a series from the end of the one before, and lets go of the manager at the last.
class Chain : public MZWorkSeriesDelegate {
public:
    explicit Chain(std::size_t count) : left_(count) {}
    void workSeriesStatusChanged(MZWorkSeries&, Status) override {
        if (--left_ != 0) {
            manager->submitWork(seriesOf({}));
        } else {
            manager.reset();
        }
    }
    std::shared_ptr<MZWorkSeriesManager> manager = velto::make<MZWorkSeriesManager>();

private:
    std::size_t left_;
};

TEST(WorkSeriesManager, SeriesSubmittedFromTheEndOfOneAnotherMakeALoop) {
    auto chain = std::make_shared<Chain>(200'000);
    chain->manager->setDelegate(chain);
    MZWorkSeriesManager& manager = *chain->manager;
    manager.submitWork(seriesOf({}));
    EXPECT_EQ(chain->manager, nullptr);
}

TEST(WorkSeriesManager, ManyEmptySeriesBehindAThrottleEndInALoop) {
    constexpr std::size_t count = 100'000;
    const auto [manager, counter] = countingManager(count);
    manager->setThrottle(0, 5);
    for (std::size_t i = 0; i < count; ++i) {
        manager->submitWork(typed(seriesOf({}), 5));
    }
    manager->setThrottle(1, 5);
    EXPECT_TRUE(counter->ended.wait());
}

TEST(WorkSeriesManager, TheDefaultOneCanBeReplaced) {
    const auto before = MZWorkSeriesManager::defaultManager();
    const auto mine = velto::make<MZWorkSeriesManager>();
    MZWorkSeriesManager::setDefaultManager(mine);
    EXPECT_EQ(MZWorkSeriesManager::defaultManager(), mine);
    MZWorkSeriesManager::setDefaultManager(before);
}

}  // namespace
