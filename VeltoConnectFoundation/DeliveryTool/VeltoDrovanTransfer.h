#pragma once

#include <cstdint>

/// What the delivery tool has told of the bytes of an upload; all 0 before it announced a total.
struct VeltoDrovanTransfer {
    std::uint64_t size = 0;     ///< Of all files together, as announced.
    std::uint64_t sent = 0;     ///< By this run; what a restart sends again counts once.
    std::uint64_t skipped = 0;  ///< Of files that the store had before this run.

    /// Whether every byte is either sent or at the store already.
    bool isWhole() const { return size != 0 && sent + skipped >= size; }
};
