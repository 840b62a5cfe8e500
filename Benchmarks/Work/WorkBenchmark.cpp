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

/// Items per second through series, item making excluded; bytes of heap per item and its worker.
void workItems(benchmark::State& state) {
    const auto series = static_cast<std::size_t>(state.range(0));
    const auto items = static_cast<std::size_t>(state.range(1));
    double bytesPerItem = 0;
    for (auto _ : state) {
        state.PauseTiming();
        auto manager = velto::make<MZWorkSeriesManager>();
        auto ends = std::make_shared<Ends>(series);
        manager->setDelegate(ends);
        const std::size_t before = mallinfo2().uordblks;
        auto all = makeSeries(series, items);
        bytesPerItem = static_cast<double>(mallinfo2().uordblks - before) /
                       static_cast<double>(series * items);
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
    state.counters["bytes/item"] = bytesPerItem;
}
BENCHMARK(workItems)
    ->Args({1, 200'000})
    ->Args({1000, 200})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

void disabledLogCall(benchmark::State& state) {
    MZLoggingSetLogLevelEnabled(MZLogLevelDebug, false);
    MZSetLogFunction(nullptr);  // reads the settings, so that the switches hold
    MZLoggingSetLogLevelEnabled(MZLogLevelDebug, false);
    int number = 1;
    const std::string text = "text";
    for (auto _ : state) {
        MZLogDebug("%d %@ %f", number, text, 1.5);
        benchmark::DoNotOptimize(number);
    }
}
BENCHMARK(disabledLogCall);

}  // namespace

int main(int argc, char** argv) {
    velto::MainQueue::runOnOwnThread();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
