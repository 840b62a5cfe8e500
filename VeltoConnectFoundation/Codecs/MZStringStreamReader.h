#pragma once

#include <VeltoConnectFoundation/Codecs/MZByteQueue.h>
#include <VeltoConnectFoundation/Platform/Stream.h>
#include <VeltoConnectFoundation/Platform/TextEncoding.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

/// The domain of the JSON reader and writer, and of the reader of characters below them.
/// Required: the spelling.
inline constexpr std::string_view MZJSONSerlizationErrorDomain = "MZJSONSerlizationErrorDomain";

/// Reads a byte stream as UTF-16 units, one at a time, in a declared encoding: UTF-8, UTF-16 or
/// UTF-32 of a named byte order. Any number of units and bytes can be pushed back.
///
/// The reader neither opens nor closes the stream. It reads ahead in blocks of 8192 bytes, and
/// waits until a block is full or the stream ends. One thread at a time.
class VELTO_EXPORT MZStringStreamReader {
public:
    /// An encoding that cannot be read is reported by the first read.
    MZStringStreamReader(velto::TextEncoding encoding, std::shared_ptr<velto::InputStream> stream);
    ~MZStringStreamReader();
    MZStringStreamReader(const MZStringStreamReader&) = delete;
    MZStringStreamReader& operator=(const MZStringStreamReader&) = delete;

    /// False at the end of the input (no error, isAtEnd) and on failure. Also false, with neither,
    /// for bytes that stand for no character. A pair of surrogates takes two calls. What a failed
    /// read took stays taken.
    [[nodiscard]] bool getNextCharacter(char16_t& character, velto::Error* error = nullptr);

    /// The next read returns `character`; the position steps back.
    void pushCharacter(char16_t character);
    void pushBytes(const std::uint8_t* bytes, std::size_t length);  ///< The position stays.

    velto::TextEncoding encoding() const noexcept { return encoding_; }
    std::size_t position() const noexcept { return index_; }  ///< Units delivered so far.
    bool isAtEnd() const noexcept { return atEnd_; }  ///< Once a read has found no more input.

    /// The bytes that are next and lie in one run, for loops that look at many at once. Empty when
    /// getNextCharacter would have to read the stream; there may be more after the run. Valid
    /// until the next call of anything but the properties.
    std::span<const std::uint8_t> buffered() const noexcept;
    /// Takes the first `bytes` bytes of the run, which the caller has read as `units` units.
    void consume(std::size_t bytes, std::size_t units) noexcept;

private:
    bool nextCharacter(char16_t& character, velto::Error* error);
    bool nextUTF8Character(char16_t& character, velto::Error* error);
    bool nextUTF16Character(char16_t& character, velto::Error* error);
    bool nextUTF32Character(char16_t& character, velto::Error* error);
    bool deliver(char32_t value, char16_t& character, velto::Error* error);
    velto::Error consumeBytes(std::size_t count, std::uint8_t* buffer, std::size_t& obtained);
    bool endOfInput(velto::Error* error) noexcept;
    velto::Error prepend(char16_t unit);

    velto::TextEncoding encoding_;
    bool atEnd_ = false;
    std::shared_ptr<velto::InputStream> stream_;
    MZSimpleCByteQueue* queue_;  ///< Owned; replaced by a larger one when a push-back needs it.
    std::size_t index_ = 0;
};

/// The same as the member.
VELTO_EXPORT bool MZStringStreamReaderGetNextCharacter(MZStringStreamReader& reader,
                                                       char16_t& character,
                                                       velto::Error* error = nullptr);

/// Reads until the buffer is full or the stream ends; `obtained` counts what came before a failure
/// too. False at the end (no error) and on failure.
bool MZReadBytesFromStream(velto::InputStream& stream,
                           std::uint8_t* buffer,
                           std::size_t maximum,
                           std::size_t& obtained,
                           velto::Error& error);

inline std::span<const std::uint8_t> MZStringStreamReader::buffered() const noexcept {
    const std::size_t run = static_cast<std::size_t>(queue_->storageEnd - queue_->head) + 1;
    return {queue_->head, queue_->length < run ? queue_->length : run};
}

inline void MZStringStreamReader::consume(std::size_t bytes, std::size_t units) noexcept {
    queue_->length -= bytes;
    queue_->head += bytes;
    if (queue_->length == 0) {
        queue_->head = queue_->tail = queue_->storage();
    } else if (queue_->head > queue_->storageEnd) {
        queue_->head = queue_->storage();
    }
    index_ += units;
}

inline bool MZStringStreamReader::getNextCharacter(char16_t& character, velto::Error* error) {
    if (queue_->length != 0 && encoding_ == velto::TextEncoding::utf8 && *queue_->head < 0xC0) {
        // A stray continuation byte reads as its low seven bits too.
        character = *queue_->head & 0x7F;
        consume(1, 1);
        return true;
    }
    return nextCharacter(character, error);
}
