#pragma once

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <random>

namespace velto::testing {

/// A new seed for each run, printed so that a failure can be repeated with
/// VELTO_TEST_SEED=seed in the environment.
inline std::uint64_t randomSeed() {
    const char* given = std::getenv("VELTO_TEST_SEED");
    const std::uint64_t seed =
        given != nullptr ? std::strtoull(given, nullptr, 10)
                         : (std::uint64_t{std::random_device{}()} << 32) | std::random_device{}();
    std::cout << "seed " << seed << '\n';
    return seed;
}

}  // namespace velto::testing
