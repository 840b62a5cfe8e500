#pragma once

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <functional>
#include <limits>
#include <string>
#include <vector>

/// Times ways of doing the same in turns, so that a busy machine hits all alike, and prints the
/// best of each: processor time, and the first one's speed as a multiple of the other's.
class Comparison {
public:
    Comparison(std::string title, std::size_t bytes) : title_(std::move(title)), bytes_(bytes) {}

    Comparison& add(std::string name, std::function<void()> run) {
        ways_.push_back({std::move(name), std::move(run), std::numeric_limits<double>::max()});
        return *this;
    }

    /// Each turn runs each way until it has taken 20 ms.
    void print(int turns) {
        for (int turn = 0; turn < turns; ++turn) {
            for (Way& way : ways_) {
                // The clock costs as much as a short run: it is asked ever less often.
                int runs = 0;
                double elapsed = 0;
                for (int more = 1; elapsed < 0.02; more = std::min(runs, 1000)) {
                    const double start = now();
                    for (int run = 0; run < more; ++run) {
                        way.run();
                    }
                    elapsed += now() - start;
                    runs += more;
                }
                way.best = std::min(way.best, elapsed / runs);
            }
        }
        std::printf("%s\n", title_.c_str());
        for (const Way& way : ways_) {
            std::printf("  %-36s %9.3f ms  %7.2f GB/s  ratio %5.2f\n", way.name.c_str(),
                        way.best * 1e3, static_cast<double>(bytes_) / way.best / 1e9,
                        way.best / ways_.front().best);
        }
        std::fflush(stdout);
    }

    double best(std::size_t way) const { return ways_[way].best; }

private:
    struct Way {
        std::string name;
        std::function<void()> run;
        double best;
    };

    static double now() {
        timespec time{};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
    }

    std::string title_;
    std::size_t bytes_;
    std::vector<Way> ways_;
};
