// Copies beside what one would do without the library. Elapsed time; in memory, where we copy and
// digest at once, processor time too.
//
// usage: CopyBenchmark [Google Benchmark's options]
//     [--copy-mebibytes=N]   size of the copy on disk (2048),
//     [--copy-folder=DIR]    which is made there (.)

#include <Benchmarks/Support/Options.h>
#include <Benchmarks/Support/RandomBytes.h>
#include <Benchmarks/Support/Row.h>
#include <Benchmarks/Support/RunProgram.h>
#include <Benchmarks/Support/TemporaryFolder.h>
#include <VeltoConnectFoundation/Files/MZFileCopyMD5Operation.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>

namespace {

/// A file of random bytes, and where it is copied to.
class Media {
public:
    Media(const std::filesystem::path& parent, std::size_t mebibytes)
        : folder_(parent),
          source(folder_.at("source")),
          copy(folder_.at("copy")),
          length(mebibytes << 20) {
        std::string mebibyte = randomBytes(std::size_t{1} << 20);
        const int file = open(source.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        for (std::size_t index = 0; index < mebibytes; ++index) {
            mebibyte[index % mebibyte.size()] ^= 1;
            if (write(file, mebibyte.data(), mebibyte.size()) != ssize_t{1} << 20) {
                std::cerr << source << ": cannot be written\n";
                std::exit(1);
            }
        }
        // What is still to be written would slow whoever comes first.
        fsync(file);
        close(file);
    }

private:
    TemporaryFolder folder_;

public:
    const std::string source;
    const std::string copy;
    const std::size_t length;
};

/// One call after the other with all that is left: the fewest that the system allows.
bool copyByOneCall(const Media& media) {
    const int from = open(media.source.c_str(), O_RDONLY | O_CLOEXEC);
    const int to = open(media.copy.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    std::size_t left = media.length;
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
    return !MZFileCopyOperation::initWithFile(media.source)->copyToPath(media.copy);
}

bool copyByCp(const Media& media) {
    return runProgram({"cp", "-p", media.source, media.copy}).has_value();
}

using Seconds = std::optional<double>;  ///< None when the copy failed.

/// Of a clock of the system while `copy` runs.
template <clockid_t clock, bool (*copy)(const Media&)>
Seconds measured(const Media& media) {
    const auto now = [] {
        timespec time{};
        clock_gettime(clock, &time);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
    };
    const double start = now();
    const bool done = copy(media);
    const double end = now();
    return done ? Seconds(end - start) : std::nullopt;
}

bool copyAndDigestByPrograms(const Media& media) {
    return copyByCp(media) && runProgram({"md5sum", media.source});
}

bool copyAndDigestByUs(const Media& media) {
    const auto operation = MZFileCopyMD5Operation::initWithFile(media.source);
    return !operation->copyToPath(media.copy) && operation->md5();
}

Seconds processorTimeOfPrograms(const Media& media) {
    const Seconds copying = runProgram({"cp", "-p", media.source, media.copy});
    const Seconds digesting = runProgram({"md5sum", media.source});
    return copying && digesting ? Seconds(*copying + *digesting) : std::nullopt;
}

void add(const std::string& name, const Media& media, Seconds (*run)(const Media&)) {
    addTimedRow(name, media.length, [run, &media] {
        const Seconds seconds = run(media);
        std::filesystem::remove(media.copy);
        return seconds;
    });
}

}  // namespace

int main(int argc, char** argv) {
    const std::size_t mebibytes = takeNumber(argc, argv, "--copy-mebibytes", 2048);
    const Media disk(takeOption(argc, argv, "--copy-folder").value_or("."), mebibytes);
    const std::string copy = "copy of " + std::to_string(mebibytes) + " MiB on disk/";
    add(copy + "ours", disk, measured<CLOCK_MONOTONIC, copyByUs>);
    add(copy + "copy_file_range", disk, measured<CLOCK_MONOTONIC, copyByOneCall>);
    add(copy + "cp", disk, measured<CLOCK_MONOTONIC, copyByCp>);

    const Media memory("/dev/shm", 512);
    const std::string both = "copy and MD5 of 512 MiB in memory";
    add(both + "/ours", memory, measured<CLOCK_MONOTONIC, copyAndDigestByUs>);
    add(both + "/cp and md5sum", memory, measured<CLOCK_MONOTONIC, copyAndDigestByPrograms>);
    add(both + ", processor time/ours", memory,
        measured<CLOCK_PROCESS_CPUTIME_ID, copyAndDigestByUs>);
    add(both + ", processor time/cp and md5sum", memory, processorTimeOfPrograms);
    return runRows(argc, argv);
}
