#include <VeltoConnectFoundation/Files/MZFileCopyMD5Operation.h>

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <optional>
#include <random>
#include <string>
#include <vector>

extern char** environ;

/// Copies beside what one would do without the library. Contenders take turns and the best of the
/// rounds counts, since a shared machine only ever adds time.
///
///     --copy-mebibytes=N   size of the copy on disk (2048), in --copy-folder=DIR (.)
///     --copy-rounds=N      (5)
namespace {

using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

std::uint64_t copyMebibytes = 2048;
fs::path copyFolder = ".";
unsigned rounds = 5;

constexpr std::uint64_t digestMebibytes = 512;
const fs::path memoryFolder = "/dev/shm";

/// A folder of its own, with a file of random bytes in it.
class Media {
public:
    Media(const fs::path& parent, std::uint64_t mebibytes)
        : folder_(parent / ("velto-bench-" + std::to_string(getpid()))) {
        fs::create_directory(folder_);
        std::vector<std::uint64_t> block((std::size_t{1} << 20) / sizeof(std::uint64_t));
        std::mt19937_64 random(1);
        std::ranges::generate(block, random);
        const int file = open(source().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        for (std::uint64_t index = 0; index < mebibytes; ++index) {
            block[0] = index;
            isComplete_ =
                isComplete_ && write(file, block.data(), std::size_t{1} << 20) == ssize_t{1} << 20;
        }
        // What is still to be written would slow whoever comes first.
        fsync(file);
        close(file);
    }
    ~Media() { fs::remove_all(folder_); }
    Media(const Media&) = delete;
    Media& operator=(const Media&) = delete;

    bool isComplete() const { return isComplete_; }
    fs::path source() const { return folder_ / "source"; }
    fs::path copy() const { return folder_ / "copy"; }

private:
    fs::path folder_;
    bool isComplete_ = true;
};

bool runProgram(std::vector<std::string> words) {
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    int status = -1;
    const bool done = posix_spawnp(&child, arguments.front(), &actions, nullptr, arguments.data(),
                                   environ) == 0 &&
                      waitpid(child, &status, 0) == child;
    posix_spawn_file_actions_destroy(&actions);
    return done && status == 0;
}

/// One call after the other with all that is left: the fewest that the system allows.
bool copyByOneCall(const Media& media) {
    const int from = open(media.source().c_str(), O_RDONLY | O_CLOEXEC);
    const int to = open(media.copy().c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    auto left = static_cast<std::size_t>(fs::file_size(media.source()));
    while (left > 0) {
        const ssize_t count = copy_file_range(from, nullptr, to, nullptr, left, 0);
        if (count <= 0) {
            break;
        }
        left -= static_cast<std::size_t>(count);
    }
    close(from);
    close(to);
    return left == 0;
}

bool copyByUs(const Media& media) {
    return !MZFileCopyOperation::initWithFile(media.source().string())
                ->copyToPath(media.copy().string());
}

bool copyByCp(const Media& media) {
    return runProgram({"cp", "-p", media.source(), media.copy()});
}

bool copyAndDigestByUs(const Media& media) {
    const auto operation = MZFileCopyMD5Operation::initWithFile(media.source().string());
    return !operation->copyToPath(media.copy().string()) && operation->md5();
}

bool copyAndDigestByPrograms(const Media& media) {
    return copyByCp(media) && runProgram({"md5sum", media.source()});
}

using Contender = std::function<bool(const Media&)>;

/// The best time of each in seconds; none when one failed.
std::optional<std::vector<double>> compare(const Media& media,
                                           const std::vector<Contender>& contenders) {
    std::vector<double> best(contenders.size(), 1e9);
    for (unsigned round = 0; round < rounds; ++round) {
        for (std::size_t turn = 0; turn < contenders.size(); ++turn) {
            const std::size_t index = (turn + round) % contenders.size();
            const auto start = Clock::now();
            if (!contenders[index](media)) {
                return std::nullopt;
            }
            best[index] =
                std::min(best[index], std::chrono::duration<double>(Clock::now() - start).count());
            fs::remove(media.copy());
        }
    }
    return best;
}

void copyOnDisk(benchmark::State& state) {
    const Media media(copyFolder, copyMebibytes);
    for (auto _ : state) {
        const auto best = compare(media, {copyByUs, copyByOneCall, copyByCp});
        if (!media.isComplete() || !best) {
            state.SkipWithError("a copy failed");
            return;
        }
        state.SetIterationTime((*best)[0]);
        state.counters["MiB_s"] = static_cast<double>(copyMebibytes) / (*best)[0];
        state.counters["times_one_call"] = (*best)[1] / (*best)[0];
        state.counters["times_cp"] = (*best)[2] / (*best)[0];
    }
}

void copyAndDigestInMemory(benchmark::State& state) {
    const Media media(memoryFolder, digestMebibytes);
    for (auto _ : state) {
        const auto best = compare(media, {copyAndDigestByUs, copyAndDigestByPrograms});
        if (!media.isComplete() || !best) {
            state.SkipWithError("a copy failed");
            return;
        }
        state.SetIterationTime((*best)[0]);
        state.counters["MiB_s"] = static_cast<double>(digestMebibytes) / (*best)[0];
        state.counters["times_cp_md5sum"] = (*best)[1] / (*best)[0];
    }
}

BENCHMARK(copyOnDisk)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(copyAndDigestInMemory)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

/// Takes an option of ours out of the arguments.
std::optional<std::string> takeOption(int& count, char** arguments, const std::string& name) {
    for (int index = 1; index < count; ++index) {
        const std::string word = arguments[index];
        if (word.starts_with(name + "=")) {
            std::copy(arguments + index + 1, arguments + count, arguments + index);
            --count;
            return word.substr(name.size() + 1);
        }
    }
    return std::nullopt;
}

}  // namespace

int main(int count, char** arguments) {
    if (const auto value = takeOption(count, arguments, "--copy-mebibytes")) {
        copyMebibytes = std::stoull(*value);
    }
    if (const auto value = takeOption(count, arguments, "--copy-folder")) {
        copyFolder = *value;
    }
    if (const auto value = takeOption(count, arguments, "--copy-rounds")) {
        rounds = static_cast<unsigned>(std::stoul(*value));
    }
    benchmark::Initialize(&count, arguments);
    if (benchmark::ReportUnrecognizedArguments(count, arguments)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
