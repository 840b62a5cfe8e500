#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

/// Adds the row `name`, "what is done/who does it". `run` does it once over `bytes`, and answers
/// whether that went well. `counters` are shown and kept as they are.
template <class Run>
benchmark::internal::Benchmark* addRow(const std::string& name,
                                       std::size_t bytes,
                                       Run run,
                                       const benchmark::UserCounters& counters = {}) {
    return benchmark::RegisterBenchmark(
               name.c_str(),
               [bytes, run, counters](benchmark::State& state) {
                   for ([[maybe_unused]] const auto& step : state) {
                       if (!run()) {
                           state.SkipWithError("failed");
                           return;
                       }
                   }
                   state.SetBytesProcessed(static_cast<std::int64_t>(bytes) * state.iterations());
                   state.counters.insert(counters.begin(), counters.end());
               })
        ->Unit(benchmark::kMicrosecond);
}

/// Like addRow; `run` answers the seconds that count, none when it failed.
template <class Run>
benchmark::internal::Benchmark* addTimedRow(const std::string& name, std::size_t bytes, Run run) {
    return benchmark::RegisterBenchmark(
               name.c_str(),
               [bytes, run](benchmark::State& state) {
                   for ([[maybe_unused]] const auto& step : state) {
                       const std::optional<double> seconds = run();
                       if (!seconds) {
                           state.SkipWithError("failed");
                           return;
                       }
                       state.SetIterationTime(*seconds);
                   }
                   state.SetBytesProcessed(static_cast<std::int64_t>(bytes) * state.iterations());
               })
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond);
}

/// Runs what was added as Google Benchmark's options say; the status to end with.
inline int runRows(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
