#pragma once

#include <VeltoConnectFoundation/Platform/Error.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

struct z_stream_s;

/// zlib at work on one block, from and to pieces of any length: running, then ended or failed.
class GzipStream {
public:
    enum class Direction : std::uint8_t {
        deflate,  ///< To a gzip block.
        inflate,  ///< From a gzip or a zlib block.
    };

    explicit GzipStream(Direction direction);

    bool isRunning() const noexcept;
    bool hasEnded() const noexcept;
    /// Reads from the front of `input` and writes to the front of `output`, and takes off what it
    /// has read and written; until one is empty, or the stream no longer runs. `isLast`: nothing
    /// follows this input.
    void run(std::span<const std::uint8_t>& input, std::span<std::uint8_t>& output, bool isLast);
    void failForMemory() noexcept;  ///< There is no room for more output.
    velto::Error error() const;     ///< Of one that failed.

private:
    struct End {
        Direction direction;
        void operator()(z_stream_s* stream) const noexcept;
    };

    std::unique_ptr<z_stream_s, End> stream_;
    int code_;
};
