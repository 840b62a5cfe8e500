#include <VeltoConnectFoundation/Work/MZWorkItem.h>

#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/NotificationCenter.h>
#include <VeltoConnectFoundation/Platform/Queue.h>
#include <VeltoConnectFoundation/Work/MZThroughputWorker.h>

#include <Tests/Support/CapturedLog.h>
#include <Tests/Work/TestWorkers.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using velto::Clock;
using velto::Seconds;
using velto::testing::CapturedLog;
using velto::testing::FunctionWorker;
using Status = MZWorkItemStatus;

class TransferWorker : public FunctionWorker, public MZThroughputWorker {
public:
    using FunctionWorker::FunctionWorker;
    std::uint64_t size() const override { return total; }
    std::uint64_t completed() const override { return done; }
    std::uint64_t total = 1000;
    std::uint64_t done = 0;
};

class RecordingDelegate : public MZWorkItemDelegate {
public:
    void workItemStatusChanged(MZWorkItem&, Status status) override { statuses.push_back(status); }
    std::vector<Status> statuses;
};

/// Counts the completions of one item that arrive on the main thread.
class Completions {
public:
    explicit Completions(const MZWorkItem& item)
        : observation_(velto::NotificationCenter::shared().observe(
              MZWorkItemCompletedNotification,
              &item,
              [this](const velto::Notification&) {
                  EXPECT_TRUE(velto::MainQueue::isMainThread());
                  ++count_;
              })) {}
    int count() {
        velto::MainQueue::shared().async([] {});  // what was posted before is delivered before this
        velto::MainQueue::shared().sync([] {});
        return count_;
    }

private:
    std::atomic<int> count_{0};
    velto::NotificationObservation observation_;
};

/// An item, and all that is told of it.
struct Watched {
    explicit Watched(std::function<void(FunctionWorker&)> work)
        : item(MZWorkItem::itemWithWorker(std::make_shared<FunctionWorker>(std::move(work)))),
          completions(*item) {
        item->setDelegate(delegate);
    }
    std::shared_ptr<MZWorkItem> item;
    std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
    Completions completions;
};

TEST(WorkItem, RunsOnceAndCompletesOnce) {
    int runs = 0;
    Watched watched([&](FunctionWorker&) { ++runs; });
    const auto& item = watched.item;
    item->main();
    item->main();
    item->cancel();
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(watched.completions.count(), 1);
    EXPECT_THAT(watched.delegate->statuses, ElementsAre(Status::running, Status::completed));
    EXPECT_LT(item->startSequence(), item->endSequence());
}

TEST(WorkItem, CancellingAPendingItemPostsOnce) {
    int runs = 0;
    Watched watched([&](FunctionWorker&) { ++runs; });
    const auto& item = watched.item;
    item->cancel();
    item->cancel();
    item->main();
    EXPECT_EQ(runs, 0);
    EXPECT_EQ(watched.completions.count(), 1);
    EXPECT_EQ(item->status(), Status::cancelled);
    EXPECT_EQ(item->percentComplete(), 100);
    EXPECT_EQ(item->endSequence(), 0U);
    EXPECT_TRUE(item->completeTime());
    EXPECT_THAT(watched.delegate->statuses, ElementsAre(Status::cancelled));
}

TEST(WorkItem, ACancelWhileRunningStaysCancelled) {
    MZWorkItem* self = nullptr;
    Watched watched([&](FunctionWorker& worker) {
        self->cancel();
        EXPECT_TRUE(worker.isCancelled());
        EXPECT_FALSE(self->completeTime()) << "it completes when the worker returns";
    });
    self = watched.item.get();
    self->main();
    EXPECT_EQ(watched.completions.count(), 1);
    EXPECT_THAT(watched.delegate->statuses, ElementsAre(Status::running, Status::cancelled));
}

TEST(WorkItem, SwallowsPlatformExceptionsAndPassesOthersOn) {
    CapturedLog log;
    auto swallowed = MZWorkItem::itemWithWorker(std::make_shared<FunctionWorker>(
        [](FunctionWorker&) { throw velto::Exception("Name", "reason"); }));
    swallowed->main();
    EXPECT_TRUE(log.contains("Worker exception: Name - reason"));
    EXPECT_EQ(swallowed->status(), Status::completed);
    EXPECT_FALSE(swallowed->hasErrors());

    auto foreign = MZWorkItem::itemWithWorker(std::make_shared<FunctionWorker>(
        [](FunctionWorker&) { throw std::runtime_error("boom"); }));
    EXPECT_THROW(foreign->main(), std::runtime_error);
    EXPECT_EQ(foreign->status(), Status::completed);
    EXPECT_EQ(foreign->errorMessage(), "boom");
}

TEST(WorkItem, WordsTime) {
    CapturedLog log;
    const struct {
        double seconds;
        const char* expected;
    } rows[] = {
        {0, "00:00:00"},          {3599.6, "00:59:59"}, {3600, "01:00:00"}, {3661.4, "01:01:01"},
        {3'599'999, "999:59:59"}, {3'600'000, "∞"},     {-5, "00:00:00"},   {1e300, "∞"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(MZWorkItem::timeStringWithSeconds(Seconds(row.seconds)), row.expected)
            << row.seconds;
    }
    EXPECT_THAT(log.messages(), ElementsAre("Time interval is negative! 00:00:05"));
}

TEST(WorkItem, MeasuresRatesOverASlidingWindow) {
    auto worker = std::make_shared<TransferWorker>();
    auto item = MZWorkItem::itemWithWorker(worker);
    const auto sampleAfter = [&](double seconds, std::uint64_t done) {
        Clock::advance(Seconds(seconds));
        item->addRunningSample(done);
    };
    worker->setPercentComplete(1);
    sampleAfter(1, 100);
    sampleAfter(0.3, 200);  // too soon
    EXPECT_EQ(item->sampleRateString(), std::nullopt);
    sampleAfter(0.7, 300);
    EXPECT_NEAR(static_cast<double>(item->sampleRate()), 200, 2);
    EXPECT_NEAR(item->throughputEstimatedCompletionSecondsWithPercentComplete(50), 2.5, 0.05);
    for (int i = 0; i < 80; ++i) {
        sampleAfter(0.6, 300 + static_cast<std::uint64_t>(i + 1) * 6);
    }
    EXPECT_NEAR(static_cast<double>(item->sampleRate()), 10, 1)
        << "the fast start has left the window";
    EXPECT_TRUE(item->finalRateString());
    for (int i = 0; i < 62; ++i) {
        sampleAfter(0.6, 780);  // stalled: the last sample only moves forward in time
    }
    EXPECT_LT(item->sampleRate(), 10U);
    worker->setPercentComplete(0);
    EXPECT_EQ(item->percentComplete(), 0);
    EXPECT_EQ(item->sampleRate(), 0U) << "a restart of progress restarts the measurement";
    EXPECT_EQ(item->throughputEstimatedCompletionSecondsWithPercentComplete(50),
              velto::distantFuture.secondsSinceReference);
}

TEST(WorkItem, EstimatesFromElapsedTime) {
    double estimate = -1;
    double elapsed = -1;
    std::weak_ptr<MZWorkItem> self;
    auto item =
        MZWorkItem::itemWithWorker(std::make_shared<FunctionWorker>([&](FunctionWorker& worker) {
            Clock::advance(Seconds(10));
            elapsed = self.lock()->estimatedCompletionSeconds();
            EXPECT_EQ(self.lock()->timerMode(), "Elapsed:");
            worker.setPercentComplete(25);
            estimate = self.lock()->estimatedCompletionSeconds();
            EXPECT_EQ(self.lock()->timerMode(), "Remaining:");
        }));
    self = item;
    item->main();
    EXPECT_NEAR(elapsed, 10, 0.5);
    EXPECT_NEAR(estimate, 30, 1);
    EXPECT_EQ(item->estimatedCompletionSeconds(), 0);
    EXPECT_NEAR(item->elapsedSecondsSinceStart(), 10, 0.5);
}

TEST(WorkItem, WordsThroughput) {
    auto worker = std::make_shared<TransferWorker>();
    auto item = MZWorkItem::itemWithWorker(worker);
    worker->setPercentComplete(1);
    worker->total = 2048;
    EXPECT_EQ(item->throughputStatus(), "Pending");
    EXPECT_EQ(item->runningStatus(), "Running");
    worker->done = 1024;
    EXPECT_EQ(item->runningStatus(), "1 kB of 2 kB");
    Clock::advance(Seconds(2));
    worker->done = 1536;
    EXPECT_THAT(item->runningStatus(), testing::MatchesRegex("1.5 kB of 2 kB \\(25. bytes/s\\)"));
    item->main();
    EXPECT_THAT(item->throughputStatus(), testing::MatchesRegex("1.5 kB \\(25. bytes/s\\)"));
}

TEST(WorkItemSample, RatesAreTruncatedAndNeverNegative) {
    const WorkItemSample start{.completed = 10, .time = {100}};
    const struct {
        std::optional<WorkItemSample> end;
        bool valid;
        std::uint64_t rate;
    } rows[] = {
        {std::nullopt, false, 0},
        {WorkItemSample{.completed = 20, .time = {103}}, true, 3},
        {WorkItemSample{.completed = 20, .time = {100}}, true, 0},
        {WorkItemSample{.completed = 20, .time = {99}}, true, 0},
        {WorkItemSample{.completed = 5, .time = {103}}, true, 0},
    };
    for (const auto& row : rows) {
        bool valid = !row.valid;
        EXPECT_EQ(BytesPerSecondWithStartAndEndSamples(start, row.end, valid), row.rate);
        EXPECT_EQ(valid, row.valid);
        EXPECT_EQ(BytesPerSecondStringWithStartAndEndSamples(start, row.end).has_value(),
                  row.valid);
    }
}

/// Lets go of what it was given when it hears of anything.
class Dropper : public MZWorkItemDelegate {
public:
    void workItemStatusChanged(MZWorkItem&, Status) override { item.reset(); }
    std::shared_ptr<MZWorkItem> item;
};

TEST(WorkItem, OneThatItsDelegateOrObserverLetsGoOfReportsToItsEnd) {
    auto dropper = std::make_shared<Dropper>();
    dropper->item = MZWorkItem::itemWithWorker(std::make_shared<FunctionWorker>());
    dropper->item->setDelegate(dropper);
    MZWorkItem& item = *dropper->item;
    item.cancel();
    EXPECT_EQ(dropper->item, nullptr);

    auto held = std::make_shared<FunctionWorker>();
    FunctionWorker& dropped = *held;
    const auto observation =
        dropped.observe("cancelled", [&](const velto::PropertyChange&) { held.reset(); });
    dropped.cancel();
    EXPECT_EQ(held, nullptr);
}

}  // namespace
