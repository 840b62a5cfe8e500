#pragma once

#include <VeltoConnectFoundation/Platform/Clock.h>
#include <VeltoConnectFoundation/Work/MZWorkSeriesManager.h>

#include <condition_variable>
#include <functional>
#include <mutex>

namespace velto::testing {

/// Does what it is given, or nothing.
class FunctionWorker : public MZAbstractWorker {
public:
    explicit FunctionWorker(std::function<void(FunctionWorker&)> work = {})
        : work_(std::move(work)) {}
    void run() override {
        if (work_) {
            work_(*this);
        }
    }

private:
    std::function<void(FunctionWorker&)> work_;
};

/// Opens once; whoever waits goes on then.
class Gate {
public:
    void open() {
        const std::lock_guard guard(mutex_);
        open_ = true;
        changed_.notify_all();
    }
    void wait() {
        std::unique_lock guard(mutex_);
        changed_.wait(guard, [&] { return open_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;
};

/// Waits for a number of events, each from any thread.
class CountDown {
public:
    explicit CountDown(std::size_t count) : left_(count) {}
    void hit() {
        const std::lock_guard guard(mutex_);
        if (left_ > 0 && --left_ == 0) {
            changed_.notify_all();
        }
    }
    /// False when `limit` passed first.
    bool wait(std::chrono::seconds limit = std::chrono::seconds(60)) {
        std::unique_lock guard(mutex_);
        return changed_.wait_for(guard, limit, [&] { return left_ == 0; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::size_t left_;
};

/// Waits for the end of a number of series.
class EndCounter : public MZWorkSeriesDelegate {
public:
    explicit EndCounter(std::size_t count) : ended(count) {}
    void workSeriesStatusChanged(MZWorkSeries&, MZWorkItemStatus status) override {
        if (status == MZWorkItemStatus::completed) {
            ended.hit();
        }
    }
    CountDown ended;
};

inline std::shared_ptr<FunctionWorker> worker(std::function<void(FunctionWorker&)> work = {}) {
    return std::make_shared<FunctionWorker>(std::move(work));
}

inline std::shared_ptr<MZWorkSeries> seriesOf(
    const std::vector<std::shared_ptr<MZAbstractWorker>>& workers) {
    return MZWorkSeries::seriesWithWorkItems(MZWorkItem::itemsWithWorkers(workers));
}

}  // namespace velto::testing
