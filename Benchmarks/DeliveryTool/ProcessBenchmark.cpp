#include <VeltoConnectFoundation/Platform/Process.h>
#include <VeltoConnectFoundation/Platform/RunLoop.h>

#include <Benchmarks/DeliveryTool/BareChild.h>
#include <Benchmarks/Support/Row.h>

#include <string>
#include <vector>

namespace {

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

bool runBare() {
    const BareChild child(trivialProgram, "hello");
    std::size_t bytes = 0;
    char block[4096];
    for (const int descriptor : {child.output, child.error}) {
        for (ssize_t length = 0; (length = read(descriptor, block, sizeof block)) > 0;) {
            bytes += static_cast<std::size_t>(length);
        }
    }
    return bytes == 6;
}

bool runOurs() {
    velto::ProcessLaunch launch;
    launch.path = trivialProgram;
    launch.arguments = {"hello"};
    const auto loop = velto::RunLoop::current();
    const auto end = std::make_shared<End>();
    const auto process = velto::Process::make();
    if (!process || !process->launch(launch, loop, end)) {
        return false;
    }
    while (!loop->run(velto::Seconds(10), [&] { return end->hasCome; })) {
    }
    return end->bytes == 6;
}

/// The parent's resident memory counts, since a fork would copy its tables.
void startToReap(benchmark::State& state, std::size_t mebibytes, bool (*run)()) {
    std::vector<char> resident(mebibytes << 20, 'r');
    benchmark::DoNotOptimize(resident.data());
    for ([[maybe_unused]] const auto& step : state) {
        if (!run()) {
            state.SkipWithError("the child did not print what it should");
            return;
        }
    }
}

}  // namespace

/// Start to reap of a trivial child with two pipes, next to posix_spawn with blocking reads.
int main(int argc, char** argv) {
    for (const std::size_t mebibytes : {0U, 1024U}) {
        const std::string group = "a child of " + std::to_string(mebibytes) + " MiB/";
        benchmark::RegisterBenchmark((group + "ours").c_str(), startToReap, mebibytes, runOurs)
            ->UseRealTime();
        benchmark::RegisterBenchmark((group + "posix_spawn").c_str(), startToReap, mebibytes,
                                     runBare)
            ->UseRealTime();
    }
    return runRows(argc, argv);
}
