#include <VeltoConnectFoundation/DeliveryTool/NSDataToStringFilter.h>
#include <VeltoConnectFoundation/Platform/Process.h>
#include <VeltoConnectFoundation/Platform/RunLoop.h>

#include <Benchmarks/DeliveryTool/BareChild.h>

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t lineCount = 10'000'000;
constexpr std::size_t lineLength = 54;

std::size_t countLines(const char* text, std::size_t length) {
    std::size_t lines = 0;
    const char* const end = text + length;
    while (const void* found = std::memchr(text, '\n', static_cast<std::size_t>(end - text))) {
        text = static_cast<const char*>(found) + 1;
        ++lines;
    }
    return lines;
}

class LineCounter final : public NSDataToStringFilterDelegate {
public:
    void filterDidFilterString(NSDataToStringFilter&,
                               std::optional<std::string_view> string) override {
        bytes += string ? string->size() : 0;
        ++lines;
    }
    std::size_t lines = 0;
    std::size_t bytes = 0;
};

class LineReader final : public velto::ProcessDelegate {
public:
    explicit LineReader(const std::shared_ptr<LineCounter>& counter) : filter_(counter) {}
    void processDidReport(velto::ProcessStream, const velto::ChannelReport& report) override {
        filter_.appendData(report.block);
    }
    void processDidTerminate(const velto::ProcessExit&) override { hasEnded = true; }
    bool hasEnded = false;

private:
    NSDataToStringFilter filter_;
};

double secondsOfBareLoop(benchmark::State& state) {
    const auto start = Clock::now();
    std::size_t lines = 0;
    {
        const BareChild child(childProgram("PrintsLines"), std::to_string(lineCount));
        std::vector<char> block(64 * 1024);
        for (ssize_t length = 0; (length = read(child.output, block.data(), block.size())) > 0;) {
            lines += countLines(block.data(), static_cast<std::size_t>(length));
        }
    }
    if (lines != lineCount) {
        state.SkipWithError("the bare loop lost lines");
    }
    return std::chrono::duration<double>(Clock::now() - start).count();
}

double secondsOfOurs(benchmark::State& state) {
    const auto start = Clock::now();
    const auto loop = velto::RunLoop::current();
    const auto counter = std::make_shared<LineCounter>();
    const auto reader = std::make_shared<LineReader>(counter);
    velto::ProcessLaunch launch;
    launch.path = childProgram("PrintsLines");
    launch.arguments = {std::to_string(lineCount)};
    const auto process = velto::Process::make();
    if (!process || !process->launch(launch, loop, reader)) {
        state.SkipWithError("the child did not start");
    }
    while (!loop->run(velto::Seconds(60), [&] { return reader->hasEnded; })) {
    }
    if (counter->lines != lineCount || counter->bytes != lineCount * lineLength) {
        state.SkipWithError("lines were lost");
    }
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// 10 million lines from a child through process, run loop and filter, next to a bare loop of
/// read and memchr.
void linesOfAChild(benchmark::State& state) {
    double bare = 0;
    double ours = 0;
    for (auto _ : state) {
        bare += secondsOfBareLoop(state);
        const double time = secondsOfOurs(state);
        ours += time;
        state.SetIterationTime(time);
    }
    const double lines =
        static_cast<double>(lineCount * static_cast<std::size_t>(state.iterations()));
    state.counters["bare_lines_per_s"] = lines / bare;
    state.counters["ours_lines_per_s"] = lines / ours;
    state.counters["rate_to_bare"] = bare / ours;
}
BENCHMARK(linesOfAChild)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);

/// The filter alone on text in memory, next to memchr: by the block's size and the kind of text.
void filterAlone(benchmark::State& state) {
    const auto blockSize = static_cast<std::size_t>(state.range(0));
    const std::string line = state.range(1) == 0
                                 ? std::string(53, 'x') + "\n"
                                 : "Übertragung läuft – 42 % von „paket“ fertig ….\n";
    std::string text;
    while (text.size() < 1'000'000) {
        text += line;
    }
    const auto counter = std::make_shared<LineCounter>();
    NSDataToStringFilter filter(counter);
    double bare = 0;
    double ours = 0;
    for (auto _ : state) {
        auto start = Clock::now();
        std::size_t lines = countLines(text.data(), text.size());
        benchmark::DoNotOptimize(lines);
        bare += std::chrono::duration<double>(Clock::now() - start).count();
        start = Clock::now();
        for (std::size_t at = 0; at < text.size(); at += blockSize) {
            filter.appendData(std::string_view(text).substr(at, blockSize));
        }
        const double time = std::chrono::duration<double>(Clock::now() - start).count();
        ours += time;
        state.SetIterationTime(time);
    }
    state.counters["ours_lines_per_s"] = static_cast<double>(counter->lines) / ours;
    state.counters["rate_to_memchr"] = bare / ours;
}
BENCHMARK(filterAlone)
    ->ArgsProduct({{4096, 65536}, {0, 1}})
    ->ArgNames({"block", "beyond_ascii"})
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
