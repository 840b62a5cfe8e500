#pragma once

#include <VeltoConnectFoundation/Codecs/MZByteQueue.h>
#include <VeltoConnectFoundation/Platform/Stream.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

/// Required: the spelling.
inline constexpr std::string_view MZBufferedOutputStreamErrorDomain =
    "MZBufferedOutputStreamErrorDoman";

/// A write buffer of fixed size in front of another stream, whose status, delegate and properties
/// it shows as its own. Nothing is flushed by destroying it: close it. One thread at a time.
class VELTO_EXPORT MZBufferedOutputStream final : public velto::OutputStream {
public:
    explicit MZBufferedOutputStream(std::shared_ptr<velto::OutputStream> output,
                                    std::size_t bufferSize = 2048);
    ~MZBufferedOutputStream() override;

    void open() override;
    void close() override;  ///< Flushes first; streamError tells whether that failed.
    /// Takes at most the buffer's size. Flushes first when there is not enough room.
    std::ptrdiff_t write(const std::uint8_t* bytes, std::size_t length) override;
    /// Writes everything buffered. After an error what was buffered is lost.
    velto::Error flushByteQueue();

    bool hasSpaceAvailable() const override;
    velto::StreamStatus streamStatus() const override;
    velto::Error streamError() const override;  ///< The last failed flush's, else the stream's.
    velto::Value propertyForKey(std::string_view key) const override;  ///< Flushes first.
    bool setProperty(const velto::Value& value, std::string_view key) override;
    std::weak_ptr<velto::StreamDelegate> delegate() const override;
    void setDelegate(std::weak_ptr<velto::StreamDelegate> delegate) override;

private:
    std::shared_ptr<velto::OutputStream> output_;
    MZSimpleCByteQueue* opaque_;  ///< Owned. Filled from the start of its storage, then emptied.
    velto::Error error_;
};
