#include <VeltoConnectFoundation/Platform/Process.h>
#include <VeltoConnectFoundation/Platform/RunLoop.h>

#include <Benchmarks/DeliveryTool/BareChild.h>

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* trivialProgram = "/bin/echo";

class End final : public velto::ProcessDelegate {
public:
    void processDidReport(velto::ProcessStream, const velto::ChannelReport& report) override {
        bytes += report.block.length();
    }
    void processDidTerminate(const velto::ProcessExit&) override { hasCome = true; }
    std::size_t bytes = 0;
    bool hasCome = false;
};

double runBare() {
    const auto start = Clock::now();
    {
        const BareChild child(trivialProgram, "hello");
        char block[4096];
        for (const int descriptor : {child.output, child.error}) {
            while (read(descriptor, block, sizeof block) > 0) {
            }
        }
    }
    return std::chrono::duration<double>(Clock::now() - start).count();
}

double runOurs(benchmark::State& state) {
    velto::ProcessLaunch launch;
    launch.path = trivialProgram;
    launch.arguments = {"hello"};
    const auto start = Clock::now();
    const auto loop = velto::RunLoop::current();
    const auto end = std::make_shared<End>();
    const auto process = velto::Process::make();
    if (!process || !process->launch(launch, loop, end)) {
        state.SkipWithError("the child did not start");
    }
    while (!loop->run(velto::Seconds(10), [&] { return end->hasCome; })) {
    }
    if (end->bytes != 6) {
        state.SkipWithError("the child's output is not what it printed");
    }
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// Start to reap of a trivial child with two pipes, next to posix_spawn with blocking reads, by
/// the parent's resident memory in MiB. The two take turns, so that both meet the same weather.
void startToReap(benchmark::State& state) {
    std::vector<char> resident(static_cast<std::size_t>(state.range(0)) * 1024 * 1024, 'r');
    benchmark::DoNotOptimize(resident.data());
    double bare = 0;
    double ours = 0;
    for (auto _ : state) {
        bare += runBare();
        const double time = runOurs(state);
        ours += time;
        state.SetIterationTime(time);
    }
    const auto runs = static_cast<double>(state.iterations());
    state.counters["bare_us"] = bare / runs * 1e6;
    state.counters["ours_us"] = ours / runs * 1e6;
    state.counters["times_bare"] = ours / bare;
}
BENCHMARK(startToReap)
    ->Arg(0)
    ->Arg(1024)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond)
    ->MinTime(1);

}  // namespace

BENCHMARK_MAIN();
