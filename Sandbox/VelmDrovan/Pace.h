#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <thread>

namespace sandbox {

/// Keeps a transfer at no more than a number of bytes a second; 0 is no limit.
class Pace {
public:
    explicit Pace(std::uint64_t bytesPerSecond) : rate_(bytesPerSecond) {}

    /// Small enough that a slow transfer still moves ten times a second.
    std::size_t blockSize() const {
        constexpr std::uint64_t largest = 1 << 20;
        return rate_ ? std::clamp<std::uint64_t>(rate_ / 20, 1, largest) : largest;
    }

    void passed(std::uint64_t bytes) {
        if (rate_ == 0)
            return;
        bytes_ += bytes;
        std::this_thread::sleep_until(
            start_ + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(
                         static_cast<double>(bytes_) / static_cast<double>(rate_))));
    }

private:
    using Clock = std::chrono::steady_clock;
    std::uint64_t rate_;
    std::uint64_t bytes_ = 0;
    Clock::time_point start_ = Clock::now();
};

/// True at most ten times a second.
class Ticker {
public:
    bool due() {
        const auto now = std::chrono::steady_clock::now();
        if (now < next_)
            return false;
        next_ = now + std::chrono::milliseconds(100);
        return true;
    }

private:
    std::chrono::steady_clock::time_point next_{};
};

}  // namespace sandbox
