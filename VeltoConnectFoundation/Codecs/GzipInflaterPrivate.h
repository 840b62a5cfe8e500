#pragma once

#include <VeltoConnectFoundation/Codecs/ByteBlockPrivate.h>
#include <VeltoConnectFoundation/Codecs/GzipStreamPrivate.h>

#include <optional>

/// Inflates a block that comes in pieces; at most as far as the setting MZInflatedSizeLimit allows.
class GzipInflater {
public:
    /// `expected`: a guess at what the block inflates to. Room that is never written costs nothing.
    explicit GzipInflater(std::size_t expected);

    /// What follows the block's end, or an error, is ignored. `isLast`: nothing follows.
    void add(std::span<const std::uint8_t> bytes, bool isLast);
    /// After the last piece. None, and the error, when the pieces were no whole block.
    std::optional<velto::Data> takeData(velto::Error* error);

private:
    bool grow();

    GzipStream stream_{GzipStream::Direction::inflate};
    ByteBlock block_;
    std::size_t limit_;
    std::size_t room_;  ///< The block's next size.
    std::size_t produced_ = 0;
};
