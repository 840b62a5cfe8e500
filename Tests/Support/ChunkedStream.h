#pragma once

#include <VeltoConnectFoundation/Platform/Stream.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace velto::testing {

/// How a stream of the tests behaves: the sizes of its transfers, over and over (0 is an empty
/// one), and after how many bytes it fails.
struct Chunks {
    static constexpr std::size_t never = std::numeric_limits<std::size_t>::max();

    std::vector<std::size_t> sizes = {never};
    std::size_t failAfter = never;
    /// Whether a reader sees the end with the last byte, or only by a read that brings nothing.
    bool endShowsEarly = true;
};

namespace detail {

class ChunkedTransfers {
public:
    explicit ChunkedTransfers(Chunks chunks) : chunks_(std::move(chunks)) {}

    /// Bytes of the next transfer; negative once the stream has failed.
    std::ptrdiff_t next(std::size_t wanted) {
        ++calls_;
        if (done_ >= chunks_.failAfter) {
            ++failures_;
            error_ = Error::make("ChunkedStream", -1, "The stream broke.", "It was told to.");
            return -1;
        }
        const std::size_t size = std::min(
            {wanted, chunks_.sizes[turn_++ % chunks_.sizes.size()], chunks_.failAfter - done_});
        done_ += size;
        return static_cast<std::ptrdiff_t>(size);
    }

    bool endShowsEarly() const { return chunks_.endShowsEarly; }
    std::size_t calls() const { return calls_; }
    std::size_t failures() const { return failures_; }
    const Error& error() const { return error_; }

private:
    Chunks chunks_;
    std::size_t turn_ = 0;
    std::size_t done_ = 0;
    std::size_t calls_ = 0;
    std::size_t failures_ = 0;
    Error error_;
};

}  // namespace detail

/// Reads bytes from memory in short and empty reads, and fails where it is told to.
class ChunkedInputStream final : public InputStream {
public:
    explicit ChunkedInputStream(std::string bytes, Chunks chunks = {})
        : bytes_(std::move(bytes)), transfers_(std::move(chunks)) {
        open();
    }

    void open() override { status_ = StreamStatus::open; }
    void close() override { status_ = StreamStatus::closed; }
    StreamStatus streamStatus() const override {
        const bool ended = at_ == bytes_.size() && (sawEnd_ || transfers_.endShowsEarly());
        return ended && status_ == StreamStatus::open ? StreamStatus::atEnd : status_;
    }
    Error streamError() const override { return transfers_.error(); }

    std::ptrdiff_t read(std::uint8_t* buffer, std::size_t length) override {
        const std::size_t left = bytes_.size() - at_;
        sawEnd_ = sawEnd_ || left == 0;
        const std::ptrdiff_t count = transfers_.next(std::min(length, left));
        if (count < 0) {
            status_ = StreamStatus::error;
        } else if (count > 0) {
            std::memcpy(buffer, bytes_.data() + at_, static_cast<std::size_t>(count));
            at_ += static_cast<std::size_t>(count);
        }
        return count;
    }

    std::size_t calls() const { return transfers_.calls(); }

private:
    std::string bytes_;
    std::size_t at_ = 0;
    bool sawEnd_ = false;
    detail::ChunkedTransfers transfers_;
    StreamStatus status_ = StreamStatus::notOpen;
};

/// Keeps what is written to it in short and empty writes, and fails where it is told to.
class ChunkedOutputStream final : public OutputStream {
public:
    explicit ChunkedOutputStream(Chunks chunks = {}) : transfers_(std::move(chunks)) {}

    void open() override { status_ = StreamStatus::open; }
    void close() override { status_ = StreamStatus::closed; }
    StreamStatus streamStatus() const override { return status_; }
    Error streamError() const override { return transfers_.error(); }
    Value propertyForKey(std::string_view key) const override {
        return key == StreamDataWrittenToMemoryKey ? Value(Data(std::string_view(written_)))
                                                   : Value();
    }
    bool setProperty(const Value&, std::string_view key) override { return key == "settable"; }

    std::ptrdiff_t write(const std::uint8_t* bytes, std::size_t length) override {
        const std::ptrdiff_t count = transfers_.next(length);
        if (count < 0) {
            status_ = StreamStatus::error;
        } else {
            written_.append(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(count));
        }
        return count;
    }

    const std::string& written() const { return written_; }
    std::size_t calls() const { return transfers_.calls(); }
    std::size_t failures() const { return transfers_.failures(); }

private:
    std::string written_;
    detail::ChunkedTransfers transfers_;
    StreamStatus status_ = StreamStatus::notOpen;
};

inline std::ptrdiff_t write(velto::OutputStream& stream, std::string_view text) {
    return stream.write(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
}

/// Notes what a stream tells its delegate.
class StreamEventRecorder final : public StreamDelegate {
public:
    void streamHandleEvent(Stream& stream, StreamEvent event) override {
        senders.push_back(&stream);
        events.push_back(event);
    }

    std::vector<const Stream*> senders;
    std::vector<StreamEvent> events;
};

}  // namespace velto::testing
