#include <Benchmarks/Support/Row.h>
#include <VeltoConnectFoundation/Platform/OperationQueue.h>
#include <VeltoConnectFoundation/Platform/Queue.h>
#include <VeltoConnectFoundation/Work/MZLog.h>
#include <VeltoConnectFoundation/Work/MZWorkSeriesManager.h>

#include <benchmark/benchmark.h>

#include <malloc.h>

#include <condition_variable>
#include <mutex>

namespace {

class NothingWorker : public MZAbstractWorker {
public:
    void run() override {}
};

class Ends : public MZWorkSeriesDelegate {
public:
    explicit Ends(std::size_t count) : left_(count) {}
    void workSeriesStatusChanged(MZWorkSeries&, MZWorkItemStatus status) override {
        if (status == MZWorkItemStatus::completed) {
            const std::lock_guard guard(mutex_);
            if (--left_ == 0) {
                changed_.notify_all();
            }
        }
    }
    void wait() {
        std::unique_lock guard(mutex_);
        changed_.wait(guard, [&] { return left_ == 0; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::size_t left_;
};

std::vector<std::shared_ptr<MZWorkSeries>> makeSeries(std::size_t count, std::size_t items) {
    std::vector<std::shared_ptr<MZWorkSeries>> all;
    for (std::size_t i = 0; i < count; ++i) {
        std::vector<std::shared_ptr<MZAbstractWorker>> workers(items);
        for (auto& worker : workers) {
            worker = std::make_shared<NothingWorker>();
        }
        all.push_back(MZWorkSeries::seriesWithWorkItems(MZWorkItem::itemsWithWorkers(workers)));
    }
    return all;
}

/// Bytes of heap of an item and its worker.
double bytesPerItem(std::size_t series, std::size_t items) {
    const std::size_t before = mallinfo2().uordblks;
    const auto all = makeSeries(series, items);
    return static_cast<double>(mallinfo2().uordblks - before) / static_cast<double>(series * items);
}

/// Items per second through series, item making excluded.
void workItems(benchmark::State& state, std::size_t series, std::size_t items) {
    for ([[maybe_unused]] const auto& step : state) {
        state.PauseTiming();
        auto manager = velto::make<MZWorkSeriesManager>();
        auto ends = std::make_shared<Ends>(series);
        manager->setDelegate(ends);
        auto all = makeSeries(series, items);
        state.ResumeTiming();
        for (const auto& one : all) {
            manager->submitWork(one);
        }
        ends->wait();
        state.PauseTiming();
        velto::MainQueue::shared().sync([] {});
        all.clear();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(series * items) * state.iterations());
}

void disabledLogCall(benchmark::State& state) {
    MZLoggingSetLogLevelEnabled(MZLogLevelDebug, false);
    MZSetLogFunction(nullptr);  // reads the settings, so that the switches hold
    MZLoggingSetLogLevelEnabled(MZLogLevelDebug, false);
    int number = 1;
    const std::string text = "text";
    for ([[maybe_unused]] const auto& step : state) {
        MZLogDebug("%d %@ %f", number, text, 1.5);
        benchmark::DoNotOptimize(number);
    }
}
}  // namespace

int main(int argc, char** argv) {
    const double bytes = bytesPerItem(1, 200'000);
    velto::MainQueue::runOnOwnThread();
    benchmark::RegisterBenchmark("1 series of 200000 items",
                                 [bytes](benchmark::State& state) {
                                     workItems(state, 1, 200'000);
                                     state.counters["bytes_per_item"] = bytes;
                                 })
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("1000 series of 200 items", workItems, 1000, 200)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("disabled log call", disabledLogCall);
    return runRows(argc, argv);
}
