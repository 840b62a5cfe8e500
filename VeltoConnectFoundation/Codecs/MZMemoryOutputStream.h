#pragma once

#include <VeltoConnectFoundation/Platform/Stream.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

inline constexpr std::string_view MZMemoryOutputStreamErrorDomain =
    "MZMemoryOutputStreamErrorDomain";

/// Collects what is written in one growing block, which can be handed over without a copy.
/// One thread at a time.
class VELTO_EXPORT MZMemoryOutputStream final : public velto::OutputStream {
public:
    explicit MZMemoryOutputStream(std::size_t capacity = 1024);
    ~MZMemoryOutputStream() override;

    /// The block, until the next write; null once it has been handed over.
    const std::uint8_t* memory() const noexcept { return memory_; }
    std::size_t length() const noexcept { return length_; }
    velto::Data data() const;  ///< A copy.
    /// Hands the block over; the stream goes on with none, and takes a new one when written to.
    velto::Data dataByResettingMemoryStream();

    void open() override;
    void close() override;  ///< Keeps what was written.
    std::ptrdiff_t write(const std::uint8_t* bytes, std::size_t length) override;
    bool hasSpaceAvailable() const override { return true; }
    velto::StreamStatus streamStatus() const override { return status_; }
    velto::Error streamError() const override { return error_; }
    /// `data` for StreamDataWrittenToMemoryKey.
    velto::Value propertyForKey(std::string_view key) const override;

private:
    velto::Error makeRoom(std::size_t length);

    std::uint8_t* memory_ = nullptr;  ///< From malloc, since the block is handed over as such.
    std::size_t length_ = 0;
    std::size_t capacity_;
    velto::Error error_;
    velto::StreamStatus status_ = velto::StreamStatus::notOpen;
};
