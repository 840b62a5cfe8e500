#pragma once

#include <VeltoConnectFoundation/Platform/Stream.h>
#include <VeltoConnectFoundation/Platform/TextEncoding.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// The characters of a stream in UTF-8, UTF-16 or UTF-32 as a text in UTF-8 that goes on, block by
/// block as MZStringStreamReader reads the stream.
///
/// The text ends before anything that stands for no character, and before the block that a failure
/// of the stream left unfinished. UTF-8 is taken as it is.
class MZJSONTextSource {
public:
    /// `first`: bytes that have been read from the stream already.
    MZJSONTextSource(velto::TextEncoding encoding,
                     std::shared_ptr<velto::InputStream> stream,
                     std::string_view first);

    /// Goes on to a text that begins with the last `unread` bytes of this one and has at least as
    /// many new bytes of the stream behind them, in whole blocks; false when there are no more.
    bool readMore(std::size_t unread);
    /// A zero stands behind it, and a byte before it may be read. It lasts until more is read.
    std::string_view text() const noexcept { return {&block_[begin_], length_ - begin_}; }

    /// Whether the text is all that the stream had; known when there is no more.
    bool isComplete() const noexcept { return isEnded_ && undecodedLength_ == 0 && !error_; }
    /// All bytes that have been read, in the stream's encoding.
    std::string bytes() const;
    /// The stream, which goes on after them or fails as it did.
    std::shared_ptr<velto::InputStream> stream() const;

private:
    char* room(std::size_t count);
    void commit(char* end) noexcept;
    void takeCharacters();

    velto::TextEncoding encoding_;
    std::shared_ptr<velto::InputStream> stream_;
    /// A part of the text. None is moved when the text gets longer: a long one would be moved
    /// often, each time to memory that the system has to clear first.
    struct Segment {
        std::unique_ptr<char[]> block;
        std::size_t length;
    };
    std::vector<Segment> read_;  ///< What stood before block_, in order.
    std::unique_ptr<char[]> block_;
    std::size_t capacity_ = 0;
    std::size_t begin_ = 0;            ///< Where the text begins in block_.
    std::size_t length_ = 0;           ///< What of block_ has been written.
    std::string undecoded_;            ///< Unless in UTF-8, what the stream gave last.
    std::size_t undecodedLength_ = 0;  ///< An incomplete character, or what begins with none.
    bool isEnded_ = false;
    velto::Error error_;
};
