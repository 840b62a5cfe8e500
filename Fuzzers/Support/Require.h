#pragma once

#include <cstdlib>

/// Ends the fuzzer with a finding unless the condition holds.
inline void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}
