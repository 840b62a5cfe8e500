#include <VeltoConnectFoundation/Work/MZWorkSeries.h>

#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/NotificationCenter.h>
#include <VeltoConnectFoundation/Platform/OperationQueue.h>
#include <VeltoConnectFoundation/Platform/Queue.h>
#include <VeltoConnectFoundation/Work/MZServiceCallWorker.h>

#include <Tests/Support/CapturedLog.h>
#include <Tests/Work/TestWorkers.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

namespace {

using testing::ElementsAre;
using testing::StartsWith;
using velto::testing::CapturedLog;
using velto::testing::CountDown;
using velto::testing::FunctionWorker;
using velto::testing::Gate;
using velto::testing::seriesOf;
using velto::testing::worker;
using Status = MZWorkItemStatus;

/// Owns a queue and lets a test wait for the series' end.
class Owner : public MZWorkSeriesDelegate {
public:
    void workSeriesStatusChanged(MZWorkSeries&, Status status) override {
        statuses.push_back(status);
        if (status == Status::completed) {
            ended.hit();
        }
    }
    std::shared_ptr<velto::OperationQueue> operationQueue() override { return queue; }

    std::shared_ptr<velto::OperationQueue> queue = velto::OperationQueue::make();
    std::vector<Status> statuses;
    CountDown ended{1};
};

/// Runs a series to its end, and gives back who watched it.
std::shared_ptr<Owner> runToItsEnd(MZWorkSeries& series) {
    auto owner = std::make_shared<Owner>();
    series.setDelegate(owner);
    series.start();
    EXPECT_TRUE(owner->ended.wait());
    return owner;
}

TEST(WorkSeries, RunsItsItemsInOrder) {
    std::string order;
    auto series =
        seriesOf({worker([&](FunctionWorker&) { order += 'a'; }),
                  worker([&](FunctionWorker&) { order += 'b'; }), worker([&](FunctionWorker& self) {
                      order += 'c';
                      self.addWarning("w");
                  })});
    const auto owner = runToItsEnd(*series);
    EXPECT_EQ(order, "abc");
    EXPECT_THAT(owner->statuses, ElementsAre(Status::running, Status::completed));
    EXPECT_EQ(series->warnings().size(), 1U);
    EXPECT_FALSE(series->hasErrors() || series->isCancelled());
    EXPECT_TRUE(series->completeTime());
    EXPECT_LT(series->workItems()[0]->endSequence(), series->workItems()[1]->startSequence());
}

TEST(WorkSeries, StopsAtTheFirstItemThatFails) {
    bool ran = false;
    auto series =
        seriesOf({worker(), worker([](FunctionWorker& self) { self.addErrorMessage("broken"); }),
                  worker([&](FunctionWorker&) { ran = true; })});
    runToItsEnd(*series);
    EXPECT_FALSE(ran);
    EXPECT_EQ(series->status(), Status::completed);
    EXPECT_EQ(series->workItems()[2]->status(), Status::cancelled);
    EXPECT_TRUE(series->hasErrors());
    EXPECT_FALSE(series->isCancelled()) << "errors outrank cancellation";
    EXPECT_EQ(series->errors().size(), 1U);
}

TEST(WorkSeries, EndsWhenNothingOfItRunsAnyMore) {
    Gate running;
    Gate mayEnd;
    auto series = seriesOf({worker([&](FunctionWorker&) {
                                running.open();
                                mayEnd.wait();
                            }),
                            worker()});
    auto owner = std::make_shared<Owner>();
    series->setDelegate(owner);
    series->start();
    running.wait();
    series->cancel();
    EXPECT_EQ(series->status(), Status::running) << "its first item still runs";
    EXPECT_EQ(series->workItems()[1]->worker()->workStatus(), MZWorkStatusCancelled);
    mayEnd.open();
    ASSERT_TRUE(owner->ended.wait());
    EXPECT_TRUE(series->isCancelled());
    EXPECT_THAT(owner->statuses, ElementsAre(Status::running, Status::completed));
}

TEST(WorkSeries, AnEmptyOneCompletesAtOnceAndRunsOnce) {
    auto series = seriesOf({});
    std::atomic<int> posted{0};
    const auto observation =
        velto::NotificationCenter::shared().observe(MZWorkSeriesCompletedNotification, series.get(),
                                                    [&](const velto::Notification&) { ++posted; });
    series->start();
    EXPECT_EQ(series->status(), Status::completed);
    try {
        series->start();
        FAIL() << "expected an exception";
    } catch (const velto::Exception& exception) {
        EXPECT_THAT(exception.reason(),
                    StartsWith("Calling start more than once on a work series: <MZWorkSeries"));
    }
    series->setStatus(Status::completed);
    velto::MainQueue::shared().sync([] {});
    EXPECT_EQ(posted, 1);
}

TEST(WorkSeries, WithoutAQueueNothingIsScheduled) {
    CapturedLog log;
    auto series = seriesOf({worker()});
    series->start();
    EXPECT_THAT(log.messages(), ElementsAre("delegate is not returning an NSOperationQueue"));
    EXPECT_EQ(series->status(), Status::running);
    series->cancel();
    EXPECT_EQ(series->status(), Status::completed);
}

TEST(WorkSeries, CountsProgressOverAllItems) {
    std::weak_ptr<MZWorkSeries> self;
    double percent = 0;
    auto series = seriesOf({worker(), worker(), worker([&](FunctionWorker& third) {
                                third.setPercentComplete(50);
                                percent = self.lock()->percentComplete();
                            }),
                            worker()});
    self = series;
    EXPECT_EQ(series->percentComplete(), 0);
    runToItsEnd(*series);
    EXPECT_EQ(percent, 62.5);
}

TEST(WorkSeries, AnItemThatIsCancelledBeforehandEndsItWhoeverIsItsDelegate) {
    auto series = seriesOf({worker(), worker(), worker()});
    series->workItems()[1]->setDelegate({});
    series->workItems()[1]->cancel();
    EXPECT_EQ(series->status(), Status::completed);
    EXPECT_TRUE(series->isCancelled());
    EXPECT_EQ(series->workItems()[0]->status(), Status::cancelled);
}

TEST(WorkSeries, WhatIsOnlySetOrToldToAnotherKeepsItFromNothing) {
    int runs = 0;
    const auto counting = [&] { return worker([&](FunctionWorker&) { ++runs; }); };
    auto series = seriesOf({counting(), counting(), counting(), counting()});
    const auto& items = series->workItems();
    items[0]->setStatus(Status::completed);
    series->workItemStatusChanged(*items[1], Status::completed);
    items[1]->setDelegate(std::make_shared<MZWorkItemDelegate>());
    items[2]->setSeries({});
    items[3]->threadCompleted();  // ended without a run before its turn comes
    const auto owner = runToItsEnd(*series);
    EXPECT_EQ(runs, 3);
    EXPECT_THAT(owner->statuses, ElementsAre(Status::running, Status::completed));
    EXPECT_EQ(items[3]->status(), Status::completed);
}

TEST(WorkSeries, AnItemThatStandsTwiceOrRunsElsewhereIsAwaitedOnce) {
    Gate running;
    Gate mayEnd;
    auto elsewhere = MZWorkItem::itemWithWorker(worker([&](FunctionWorker&) {
        running.open();
        mayEnd.wait();
    }));
    auto twice = MZWorkItem::itemWithWorker(worker());
    std::thread runner([&] { elsewhere->main(); });
    running.wait();
    auto series = MZWorkSeries::seriesWithWorkItems({twice, twice, elsewhere});
    auto owner = std::make_shared<Owner>();
    series->setDelegate(owner);
    series->start();
    mayEnd.open();
    EXPECT_TRUE(owner->ended.wait());
    runner.join();
}

TEST(WorkSeries, AnObserverThatReadsItsSeriesHoldsUpNoCancel) {
    for (int round = 0; round < 1000; ++round) {
        auto series = seriesOf({worker([](FunctionWorker& self) { self.setPercentComplete(1); }),
                                worker([](FunctionWorker& self) { self.setPercentComplete(1); })});
        std::vector<velto::Observation> observations;
        for (const auto& item : series->workItems()) {
            for (const std::string_view key : {"percentComplete", "workStatus", "cancelled"}) {
                observations.push_back(
                    item->worker()->observe(key, [&series](const velto::PropertyChange&) {
                        static_cast<void>(series->hasErrors());
                        static_cast<void>(series->description());
                    }));
            }
        }
        auto owner = std::make_shared<Owner>();
        series->setDelegate(owner);
        std::thread canceller([&] { series->cancel(); });
        series->start();
        canceller.join();
        ASSERT_TRUE(owner->ended.wait());
        owner->queue->waitUntilAllOperationsAreFinished();
    }
}

class RaisesWhenCancelled : public FunctionWorker {
public:
    void cancel() override { throw 1; }
};

TEST(WorkSeries, AnItemsEndReachesEachOfItsSeriesWhateverOneOfThemRaises) {
    CapturedLog log;
    auto failing =
        MZWorkItem::itemWithWorker(worker([](FunctionWorker& self) { self.addErrorMessage("x"); }));
    auto raising = MZWorkItem::itemWithWorker(std::make_shared<RaisesWhenCancelled>());
    auto first = MZWorkSeries::seriesWithWorkItems({failing, raising});
    auto gone = MZWorkSeries::seriesWithWorkItem(failing);
    auto second = MZWorkSeries::seriesWithWorkItem(failing);
    gone.reset();
    auto third = MZWorkSeries::seriesWithWorkItem(failing);
    const auto owner = std::make_shared<Owner>();
    for (const auto& series : {first, second, third}) {
        series->setDelegate(owner);
        series->start();
    }
    owner->queue->waitUntilAllOperationsAreFinished();
    for (const auto& series : {first, second, third}) {
        EXPECT_EQ(series->status(), Status::completed);
    }
}

/// Notes how things stand when the series' end is told.
class EndWitness : public Owner {
public:
    void workSeriesStatusChanged(MZWorkSeries& series, Status status) override {
        Owner::workSeriesStatusChanged(series, status);
        if (status == Status::completed) {
            velto::MainQueue::shared().sync([] {});
            notifiedBefore = notifications;
            for (const std::shared_ptr<MZWorkItem>& item : series.workItems()) {
                itemStatuses.push_back(item->status());
            }
        }
    }

    std::atomic<int> notifications{0};
    int notifiedBefore = -1;
    std::vector<Status> itemStatuses;
};

TEST(WorkSeries, ItsDelegateIsToldWhenAllIsCancelledAndBeforeTheNotification) {
    auto series = seriesOf({worker(), worker(), worker()});
    auto witness = std::make_shared<EndWitness>();
    series->setDelegate(witness);
    const auto observation = velto::NotificationCenter::shared().observe(
        MZWorkSeriesCompletedNotification, series.get(),
        [&](const velto::Notification&) { ++witness->notifications; });
    series->cancel();
    EXPECT_THAT(witness->itemStatuses,
                ElementsAre(Status::cancelled, Status::cancelled, Status::cancelled));
    EXPECT_EQ(witness->notifiedBefore, 0);
    velto::MainQueue::shared().sync([] {});
    EXPECT_EQ(witness->notifications, 1);
}

class RefusingWorker : public FunctionWorker {
public:
    explicit RefusingWorker(bool isForeign) : isForeign_(isForeign) {}
    void cancel() override {
        if (isForeign_) {
            throw std::runtime_error("no");
        }
        throw velto::Exception("Name", "no");
    }

private:
    bool isForeign_;
};

TEST(WorkSeries, AWorkerThatRaisesWhenCancelledKeepsNothingFromEnding) {
    for (const bool isForeign : {false, true}) {
        SCOPED_TRACE(isForeign);
        CapturedLog log;
        auto series = seriesOf({std::make_shared<RefusingWorker>(isForeign), worker(),
                                std::make_shared<RefusingWorker>(isForeign), worker()});
        if (isForeign) {
            EXPECT_THROW(series->cancel(), std::runtime_error);
        } else {
            EXPECT_NO_THROW(series->cancel());
            EXPECT_THAT(log.messages(),
                        ElementsAre("Worker exception: Name - no", "Worker exception: Name - no"));
        }
        EXPECT_EQ(series->status(), Status::completed);
        for (const std::shared_ptr<MZWorkItem>& item : series->workItems()) {
            EXPECT_EQ(item->status(), Status::cancelled);
            EXPECT_TRUE(item->completeTime());
            EXPECT_EQ(item->worker()->workStatus(), MZWorkStatusCancelled);
        }
    }
}

class FailingListener : public FunctionWorker {
public:
    explicit FailingListener(int& told) : told_(told) {}
    void seriesCompleted() override {
        ++told_;
        throw velto::Exception("Name", "first");
    }

private:
    int& told_;
};

TEST(WorkSeries, TellsAllItemsOfItsEndThenRaisesTheFirstException) {
    int told = 0;
    auto series = seriesOf(
        {std::make_shared<FailingListener>(told), std::make_shared<FailingListener>(told)});
    EXPECT_THROW(series->notifyWorkItemsOfSeriesCompletion(), velto::Exception);
    EXPECT_EQ(told, 2);
}

class CallingWorker : public FunctionWorker, public MZServiceCallWorker {
public:
    std::optional<MZServiceCallReport> serviceCallReport() const override {
        return MZServiceCallReport{"lookup", 503, {{"Retry-After", "5"}}};
    }
};

TEST(WorkSeries, CollectsTheOutcomesOfServiceCalls) {
    auto series = seriesOf({worker(), std::make_shared<CallingWorker>()});
    runToItsEnd(*series);
    EXPECT_EQ(series->httpStatusCodes(), velto::Array{(velto::Dictionary{{"lookup", 503}})});
    EXPECT_EQ(series->httpHeaders()[0]["lookup"]["Retry-After"].string(), "5");
}

}  // namespace
