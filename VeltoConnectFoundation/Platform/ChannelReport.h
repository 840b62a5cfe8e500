#pragma once

#include <VeltoConnectFoundation/Platform/Value.h>

#include <cstdint>

namespace velto {

/// One thing that a channel tells: a block of bytes, or why it cannot read on.
struct ChannelReport {
    enum class Kind : std::uint8_t {
        block,
        drained,     ///< A block as well: what was left when the writer had ended.
        openFailed,  ///< The I/O thread cannot watch the descriptor.
        readFailed,
    };

    Kind kind = Kind::block;
    Data block;     ///< Never empty in a block.
    int error = 0;  ///< errno of a failure.
};

}  // namespace velto
