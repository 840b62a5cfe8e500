#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>

/// The same bytes in every run.
inline std::string randomBytes(std::size_t length) {
    std::string bytes(length, '\0');
    // NOLINTNEXTLINE(cert-msc32-c,cert-msc51-cpp): the same in every run
    std::mt19937_64 random(1);
    for (std::size_t at = 0; at < length; at += sizeof(std::uint64_t)) {
        const std::uint64_t word = random();
        std::memcpy(bytes.data() + at, &word, std::min(sizeof word, length - at));
    }
    return bytes;
}
