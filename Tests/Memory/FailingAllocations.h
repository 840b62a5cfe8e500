#pragma once

#include <cstddef>

namespace velto::testing {

enum class Failing : unsigned char { once, fromThenOn };

/// While it lives, an allocation of this process fails, on whatever thread and in whatever library
/// it is made, and every later one too where that is asked for. One at a time.
class FailingAllocations {
public:
    /// `number` counts from 1; 0 is none.
    FailingAllocations(std::size_t number, Failing failing) noexcept;
    ~FailingAllocations() { stop(); }
    FailingAllocations(const FailingAllocations&) = delete;
    FailingAllocations& operator=(const FailingAllocations&) = delete;

    static bool hasFailed() noexcept;
    static void stop() noexcept;  ///< From now on all succeed.
};

}  // namespace velto::testing
