#pragma once

#include <VeltoConnectFoundation/Platform/Stream.h>
#include <VeltoConnectFoundation/Platform/TextEncoding.h>

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

/// The characters of a stream in UTF-8, UTF-16 or UTF-32 as a text in UTF-8 that grows, block by
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

    /// Reads at least as many bytes as are asked for, in whole blocks; false when there is no more
    /// text.
    bool readMore(std::size_t bytes);
    /// A zero stands behind it.
    std::string_view text() const noexcept { return {text_.get(), length_}; }

    /// Whether the text is all that the stream had; known when there is no more.
    bool isComplete() const noexcept { return isEnded_ && blockLength_ == 0 && !error_; }
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
    struct Free {
        void operator()(char* block) const noexcept { std::free(block); }
    };
    std::unique_ptr<char, Free> text_;
    std::size_t capacity_ = 0;
    std::size_t length_ = 0;       ///< What of text_ has been written.
    std::string block_;            ///< Unless in UTF-8, what the stream gave last.
    std::size_t blockLength_ = 0;  ///< A character that is not complete, or what begins with none.
    bool isEnded_ = false;
    velto::Error error_;
};
