#include <Benchmarks/Support/Row.h>
#include <VeltoConnectFoundation/Platform/NotificationCenter.h>
#include <VeltoConnectFoundation/Platform/Observable.h>
#include <VeltoConnectFoundation/Platform/OperationQueue.h>
#include <VeltoConnectFoundation/Platform/Queue.h>

#include <benchmark/benchmark.h>
#include <glib.h>

#include <atomic>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

/// Queues beside GLib's thread pool, and posts to the main thread beside GLib's idle sources. Each
/// round hands over a batch of trivial pieces and waits until the last has run.
namespace {

constexpr int batch = 10'000;

class Nothing final : public velto::Operation {
public:
    void main() override {}
};

void countPieces(benchmark::State& state) {
    state.SetItemsProcessed(state.iterations() * batch);
}

void serialQueue(benchmark::State& state) {
    const auto queue = velto::SerialQueue::make("benchmark");
    int count = 0;
    for ([[maybe_unused]] const auto& step : state) {
        for (int piece = 0; piece < batch; ++piece) {
            queue->async([&count] { ++count; });
        }
        queue->sync([] {});
    }
    countPieces(state);
}

void operationQueue(benchmark::State& state) {
    const auto queue = velto::OperationQueue::make();
    for ([[maybe_unused]] const auto& step : state) {
        for (int piece = 0; piece < batch; ++piece) {
            queue->addOperation(std::make_shared<Nothing>());
        }
        queue->waitUntilAllOperationsAreFinished();
    }
    countPieces(state);
}

void operationQueueOfSeveralProducers(benchmark::State& state, int producers) {
    const auto queue = velto::OperationQueue::make();
    for ([[maybe_unused]] const auto& step : state) {
        std::vector<std::thread> threads;
        for (int producer = 0; producer < producers; ++producer) {
            threads.emplace_back([&] {
                for (int piece = 0; piece < batch / producers; ++piece) {
                    queue->addOperation(std::make_shared<Nothing>());
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        queue->waitUntilAllOperationsAreFinished();
    }
    countPieces(state);
}

/// Each piece is allocated by its producer and freed by the pool.
void glibThreadPool(benchmark::State& state, int threads) {
    std::atomic<int> left{0};
    const auto run = [](gpointer piece, gpointer counter) {
        delete static_cast<int*>(piece);
        auto& remaining = *static_cast<std::atomic<int>*>(counter);
        if (remaining.fetch_sub(1) == 1) {
            remaining.notify_one();
        }
    };
    GThreadPool* const pool = g_thread_pool_new(run, &left, threads, TRUE, nullptr);
    for ([[maybe_unused]] const auto& step : state) {
        left = batch;
        for (int piece = 0; piece < batch; ++piece) {
            g_thread_pool_push(pool, new int(piece), nullptr);
        }
        for (int now = left; now != 0; now = left) {
            left.wait(now);
        }
    }
    g_thread_pool_free(pool, FALSE, TRUE);
    countPieces(state);
}

void serialSync(benchmark::State& state) {
    const auto queue = velto::SerialQueue::make("benchmark");
    int count = 0;
    for ([[maybe_unused]] const auto& step : state) {
        queue->sync([&count] { ++count; });
    }
    state.SetItemsProcessed(state.iterations());
}

void mainQueue(benchmark::State& state) {
    int count = 0;
    for ([[maybe_unused]] const auto& step : state) {
        for (int piece = 0; piece < batch; ++piece) {
            velto::MainQueue::shared().async([&count] { ++count; });
        }
        velto::MainQueue::shared().sync([] {});
    }
    countPieces(state);
}

void mainQueueRoundTrip(benchmark::State& state) {
    for ([[maybe_unused]] const auto& step : state) {
        velto::MainQueue::shared().sync([] {});
    }
    state.SetItemsProcessed(state.iterations());
}

class IdleSources {
public:
    IdleSources() : thread_([this] { g_main_loop_run(loop_); }) {}
    ~IdleSources() {
        post(
            [](gpointer loop) -> gboolean {
                g_main_loop_quit(static_cast<GMainLoop*>(loop));
                return G_SOURCE_REMOVE;
            },
            loop_);
        thread_.join();
        g_main_loop_unref(loop_);
        g_main_context_unref(context_);
    }
    IdleSources(const IdleSources&) = delete;
    IdleSources& operator=(const IdleSources&) = delete;

    void post(GSourceFunc function, gpointer data) {
        GSource* const source = g_idle_source_new();
        g_source_set_priority(source, G_PRIORITY_DEFAULT);
        g_source_set_callback(source, function, data, nullptr);
        g_source_attach(source, context_);
        g_source_unref(source);
    }
    void drain() {
        std::binary_semaphore done{0};
        post(
            [](gpointer data) -> gboolean {
                static_cast<std::binary_semaphore*>(data)->release();
                return G_SOURCE_REMOVE;
            },
            &done);
        done.acquire();
    }

private:
    GMainContext* const context_ = g_main_context_new();
    GMainLoop* const loop_ = g_main_loop_new(context_, FALSE);
    std::thread thread_;
};

void idleSources(benchmark::State& state) {
    IdleSources sources;
    int count = 0;
    for ([[maybe_unused]] const auto& step : state) {
        for (int piece = 0; piece < batch; ++piece) {
            sources.post(
                [](gpointer data) -> gboolean {
                    ++*static_cast<int*>(data);
                    return G_SOURCE_REMOVE;
                },
                &count);
        }
        sources.drain();
    }
    countPieces(state);
}

void idleSourceRoundTrip(benchmark::State& state) {
    IdleSources sources;
    for ([[maybe_unused]] const auto& step : state) {
        sources.drain();
    }
    state.SetItemsProcessed(state.iterations());
}

class Subject final : public velto::Observable {
public:
    void change() { const Change change(*this, {"status"}); }
};

void unobservedChange(benchmark::State& state) {
    Subject subject;
    for ([[maybe_unused]] const auto& step : state) {
        subject.change();
        benchmark::ClobberMemory();
    }
}

void observedChange(benchmark::State& state) {
    Subject subject;
    int told = 0;
    const auto observation =
        subject.observe("status", [&](const velto::PropertyChange&) { ++told; });
    for ([[maybe_unused]] const auto& step : state) {
        subject.change();
    }
}

void unobservedNotification(benchmark::State& state) {
    for ([[maybe_unused]] const auto& step : state) {
        velto::NotificationCenter::shared().postOnMainThread("NobodyObservesThis", nullptr);
    }
}

template <class... Arguments>
void addThreadsRow(const char* name, Arguments... arguments) {
    benchmark::RegisterBenchmark(name, arguments...)->UseRealTime();
}

}  // namespace

int main(int argc, char** argv) {
    velto::MainQueue::runOnOwnThread();
    const auto cores = static_cast<int>(std::thread::hardware_concurrency());
    addThreadsRow("serial queue/ours", serialQueue);
    addThreadsRow("serial queue/GLib's pool of one thread", glibThreadPool, 1);
    addThreadsRow("operation queue/ours", operationQueue);
    addThreadsRow("operation queue/GLib's pool", glibThreadPool, cores);
    addThreadsRow("operation queue of 4 producers", operationQueueOfSeveralProducers, 4);
    addThreadsRow("main queue/ours", mainQueue);
    addThreadsRow("main queue/GLib's idle sources", idleSources);
    addThreadsRow("main queue, there and back/ours", mainQueueRoundTrip);
    addThreadsRow("main queue, there and back/GLib's idle sources", idleSourceRoundTrip);
    benchmark::RegisterBenchmark("serial queue's sync", serialSync);
    benchmark::RegisterBenchmark("unobserved change", unobservedChange);
    benchmark::RegisterBenchmark("observed change", observedChange);
    benchmark::RegisterBenchmark("unobserved notification", unobservedNotification);
    return runRows(argc, argv);
}
