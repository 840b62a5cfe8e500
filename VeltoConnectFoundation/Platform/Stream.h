#pragma once

#include <VeltoConnectFoundation/Platform/Error.h>
#include <VeltoConnectFoundation/Platform/StreamDelegate.h>

#include <cstddef>
#include <memory>
#include <string_view>

namespace velto {

/// The property of an output stream that holds what was written to memory.
inline constexpr std::string_view StreamDataWrittenToMemoryKey =
    "NSStreamDataWrittenToMemoryStreamKey";
/// The property of a file stream that holds its offset.
inline constexpr std::string_view StreamFileCurrentOffsetKey = "NSStreamFileCurrentOffsetKey";

/// What reading and writing streams share. One thread at a time.
class VELTO_EXPORT Stream {
public:
    virtual ~Stream();
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    virtual void open() = 0;
    virtual void close() = 0;  ///< A second call does nothing.
    virtual StreamStatus streamStatus() const = 0;
    virtual Error streamError() const = 0;
    virtual Value propertyForKey(std::string_view key) const;  ///< none unless overridden
    virtual bool setProperty(const Value& value,
                             std::string_view key);  ///< false unless overridden

    virtual std::weak_ptr<StreamDelegate> delegate() const;
    virtual void setDelegate(std::weak_ptr<StreamDelegate> delegate);

protected:
    Stream();
    void tellDelegate(StreamEvent event);

private:
    std::weak_ptr<StreamDelegate> delegate_;
};

/// A source of bytes; reading may block.
class VELTO_EXPORT InputStream : public Stream {
public:
    static std::shared_ptr<InputStream> withData(Data data);
    static std::shared_ptr<InputStream> withFile(std::string_view path);

    /// Bytes read, at most `length`; 0 at the end; negative on failure (see streamError).
    virtual std::ptrdiff_t read(std::uint8_t* buffer, std::size_t length) = 0;
    virtual bool hasBytesAvailable() const;
    /// The bytes that can be had without copying, valid until the next call; false when the
    /// stream offers none. They count as unread.
    virtual bool getBuffer(const std::uint8_t*& bytes, std::size_t& length);
};

/// A sink of bytes; writing may block.
class VELTO_EXPORT OutputStream : public Stream {
public:
    static std::shared_ptr<OutputStream> toFile(std::string_view path, bool append = false);

    /// Bytes taken, at most `length`; negative on failure (see streamError).
    virtual std::ptrdiff_t write(const std::uint8_t* bytes, std::size_t length) = 0;
    virtual bool hasSpaceAvailable() const;
};

}  // namespace velto
