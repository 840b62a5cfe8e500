#include <VeltoConnectFoundation/Codecs/MZStringStreamReader.h>
#include <VeltoConnectFoundation/Codecs/MZUTF.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>

#include <algorithm>

namespace {

using velto::Error;
using velto::fail;
using velto::localized;
using velto::StreamStatus;
using velto::TextEncoding;

constexpr std::size_t queueCapacity = 8192;
constexpr int maximumEmptyReads = 1001;

Error readerError(std::int64_t code, const char* description, const char* reason) {
    return Error::make(MZJSONSerlizationErrorDomain, code, localized(description),
                       localized(reason));
}

Error readerError(std::int64_t code, const char* text) {
    return readerError(code, text, text);
}

Error invalidSecondByte() {
    return readerError(-10001, "The second byte of the UTF-8 character sequence is invalid.");
}

bool isContinuation(std::uint8_t byte) noexcept {
    return (byte & 0xC0) == 0x80;
}

/// What the bytes stand for; 0xFFFFFFFF for an overlong form or more than Unicode has.
char32_t decodeLongUTF8(const std::uint8_t* bytes, std::size_t count) noexcept {
    constexpr char32_t nothing = 0xFFFFFFFF;
    if (count != 4) {
        return nothing;
    }
    const char32_t value = (bytes[0] & 0x07U) << 18 | (bytes[1] & 0x3FU) << 12 |
                           (bytes[2] & 0x3FU) << 6 | (bytes[3] & 0x3FU);
    return value >= 0x10000 ? value : nothing;
}

}  // namespace

bool MZReadBytesFromStream(velto::InputStream& stream,
                           std::uint8_t* buffer,
                           std::size_t maximum,
                           std::size_t& obtained,
                           Error& error) {
    obtained = 0;
    error = {};
    if (stream.streamStatus() == StreamStatus::atEnd) {
        return false;
    }
    int emptyReads = 0;
    do {
        const std::ptrdiff_t count = stream.read(buffer + obtained, maximum - obtained);
        if (count < 0) {
            error = stream.streamError();
            return false;
        }
        if (count > 0) {
            emptyReads = 0;
        } else if (++emptyReads == maximumEmptyReads) {
            error = readerError(-100014,
                                "The input stream is unreadable and won’t allow additional reads.",
                                "Input stream unreadable");
            return false;
        }
        obtained += static_cast<std::size_t>(count);
    } while (obtained < maximum && stream.streamStatus() != StreamStatus::atEnd);
    return true;
}

MZStringStreamReader::MZStringStreamReader(TextEncoding encoding,
                                           std::shared_ptr<velto::InputStream> stream)
    : encoding_(encoding), stream_(std::move(stream)), queue_(MZByteQueueCreate(queueCapacity)) {
}

MZStringStreamReader::~MZStringStreamReader() {
    MZByteQueueRelease(queue_);
}

bool MZStringStreamReaderGetNextCharacter(MZStringStreamReader& reader,
                                          char16_t& character,
                                          Error* error) {
    return reader.getNextCharacter(character, error);
}

bool MZStringStreamReader::endOfInput(Error* error) noexcept {
    atEnd_ = true;
    return fail(error, {});
}

Error MZStringStreamReader::consumeBytes(std::size_t count,
                                         std::uint8_t* buffer,
                                         std::size_t& obtained) {
    obtained = 0;
    Error error;
    std::size_t read = 0;
    if (queue_->length == 0) {
        std::size_t room = 0;
        std::uint8_t* place = MZByteQueueRemainingContiguousBytes(queue_, &room);
        // A queue that has grown changes nothing of the blocks.
        room = std::min(room, queueCapacity);
        MZReadBytesFromStream(*stream_, place, room, read, error);
        MZByteQueueDidAppendContiguousBytes(queue_, read);
        if (error) {
            return error;
        }
    }
    while (obtained < count) {
        if (queue_->length != 0) {
            obtained += MZByteQueueConsumeBytes(queue_, buffer + obtained, count - obtained);
            continue;
        }
        const bool more =
            MZReadBytesFromStream(*stream_, buffer + obtained, count - obtained, read, error);
        obtained += read;
        if (!more) {
            return error;
        }
    }
    return {};
}

bool MZStringStreamReader::nextCharacter(char16_t& character, Error* error) {
    switch (encoding_) {
        case TextEncoding::utf8:
            return nextUTF8Character(character, error);
        case TextEncoding::utf16BigEndian:
        case TextEncoding::utf16LittleEndian:
            return nextUTF16Character(character, error);
        case TextEncoding::utf32BigEndian:
        case TextEncoding::utf32LittleEndian:
            return nextUTF32Character(character, error);
        default:
            return fail(error, readerError(-10014, "The input stream encoding is unsupported.",
                                           "Unsupported stream encoding"));
    }
}

bool MZStringStreamReader::nextUTF8Character(char16_t& character, Error* error) {
    std::uint8_t bytes[8];
    std::size_t obtained = 0;
    if (Error failure = consumeBytes(1, bytes, obtained)) {
        return fail(error, std::move(failure));
    }
    if (obtained == 0) {
        return endOfInput(error);
    }
    if (bytes[0] < 0xC0) {
        // Required: a stray continuation byte passes as an ASCII character.
        character = bytes[0] & 0x7F;
        ++index_;
        return true;
    }
    if (bytes[0] >= 0xFE) {
        return fail(error, readerError(-10010,
                                       "The UTF-8 character sequence indicates more bytes than "
                                       "UTF-8 supports.",
                                       "Invalid UTF-8 character sequence"));
    }
    const std::size_t count = MZUTF8BytesToDecodeCharacterBasedOnMostSignifantByte(bytes[0]);
    if (Error failure = consumeBytes(count - 1, bytes + 1, obtained)) {
        return fail(error, std::move(failure));
    }
    if (obtained < count - 1) {
        // Required: a sequence that the end cuts short is an ordinary end.
        return endOfInput(error);
    }
    if (count > 3) {
        if (!std::all_of(bytes + 1, bytes + count, isContinuation)) {
            return fail(error, invalidSecondByte());
        }
        return deliver(decodeLongUTF8(bytes, count), character, error);
    }
    if (!isContinuation(bytes[1])) {
        return fail(error, invalidSecondByte());
    }
    if (count == 2) {
        character = static_cast<char16_t>((bytes[0] & 0x1F) << 6 | (bytes[1] & 0x3F));
    } else {
        if (!isContinuation(bytes[2])) {
            return fail(
                error,
                readerError(-10002, "The third byte of the UTF-8 character sequence is invalid."));
        }
        character = static_cast<char16_t>((bytes[0] & 0x0F) << 12 | (bytes[1] & 0x3F) << 6 |
                                          (bytes[2] & 0x3F));
    }
    ++index_;
    return true;
}

bool MZStringStreamReader::nextUTF16Character(char16_t& character, Error* error) {
    // A final odd byte is read with a zero for the missing one.
    std::uint8_t bytes[2] = {};
    std::size_t obtained = 0;
    if (Error failure = consumeBytes(sizeof(bytes), bytes, obtained)) {
        return fail(error, std::move(failure));
    }
    if (obtained == 0) {
        return endOfInput(error);
    }
    const Error failure = encoding_ == TextEncoding::utf16BigEndian
                              ? MZUTF16BEDecodeBytesTo16Bits(bytes, sizeof(bytes), character)
                              : MZUTF16LEDecodeBytesTo16Bits(bytes, sizeof(bytes), character);
    if (failure) {
        return fail(error, failure);
    }
    ++index_;
    return true;
}

bool MZStringStreamReader::nextUTF32Character(char16_t& character, Error* error) {
    std::uint8_t bytes[4];
    std::size_t obtained = 0;
    if (Error failure = consumeBytes(sizeof(bytes), bytes, obtained)) {
        return fail(error, std::move(failure));
    }
    if (obtained == 0) {
        return endOfInput(error);
    }
    if (obtained < sizeof(bytes)) {
        return fail(error, {});
    }
    if (encoding_ == TextEncoding::utf32LittleEndian) {
        std::reverse(std::begin(bytes), std::end(bytes));
    }
    const char32_t value =
        static_cast<char32_t>(bytes[0]) << 24 | bytes[1] * 0x10000U | bytes[2] * 0x100U | bytes[3];
    return deliver(value, character, error);
}

/// One unit for a value of the basic plane, a lone surrogate included; the second half of a pair
/// goes back in front.
bool MZStringStreamReader::deliver(char32_t value, char16_t& character, Error* error) {
    if (value > 0x10FFFF) {
        return fail(error, {});
    }
    if (value >= 0x10000) {
        if (Error failure = prepend(static_cast<char16_t>(0xDC00 | (value & 0x3FF)))) {
            return fail(error, std::move(failure));
        }
        value = 0xD800 + ((value - 0x10000) >> 10);
    }
    character = static_cast<char16_t>(value);
    ++index_;
    return true;
}

void MZStringStreamReader::pushBytes(const std::uint8_t* bytes, std::size_t length) {
    if (length == 0) {
        return;
    }
    if (length > queue_->capacity - queue_->length) {
        // The queue itself would drop bytes.
        MZSimpleCByteQueue* larger =
            MZByteQueueCreate(std::max(queue_->capacity * 2, queue_->length + length));
        while (queue_->length != 0) {
            const std::span<const std::uint8_t> run = buffered();
            MZByteQueueAppendBytes(larger, run.data(), run.size());
            consume(run.size(), 0);
        }
        MZByteQueueRelease(queue_);
        queue_ = larger;
    }
    MZByteQueuePrependBytes(queue_, bytes, length);
}

void MZStringStreamReader::pushCharacter(char16_t character) {
    // A unit that has no form in the encoding could not have been read in it either.
    static_cast<void>(prepend(character));
    if (index_ != 0) {
        --index_;
    }
}

Error MZStringStreamReader::prepend(char16_t unit) {
    std::uint8_t bytes[4] = {};
    std::size_t count = sizeof(bytes);
    switch (encoding_) {
        case TextEncoding::utf8:
            if (!MZUTF8Encode16BitsToBytes(unit, bytes, count)) {
                return readerError(-100016, "Unable to encode character to UTF-8.");
            }
            break;
        case TextEncoding::utf16BigEndian:
            if (!MZUTF16BEEncode16BitsToBytes(unit, bytes, count)) {
                return readerError(-100017, "Unable to encode character to UTF-16BE.");
            }
            break;
        case TextEncoding::utf16LittleEndian:
            if (!MZUTF16LEEncode16BitsToBytes(unit, bytes, count)) {
                return readerError(-100018, "Unable to encode character to UTF-16LE.");
            }
            break;
        case TextEncoding::utf32BigEndian:
            // A lone surrogate too, so that the second half of a pair comes back as it went.
            bytes[2] = static_cast<std::uint8_t>(unit >> 8);
            bytes[3] = static_cast<std::uint8_t>(unit & 0xFF);
            break;
        case TextEncoding::utf32LittleEndian:
            bytes[0] = static_cast<std::uint8_t>(unit & 0xFF);
            bytes[1] = static_cast<std::uint8_t>(unit >> 8);
            break;
        default: {
            const auto text = velto::encodeText(velto::utf8FromUTF16({&unit, 1}), encoding_);
            if (!text) {
                return readerError(-100015, "Unsupported string stream encoding.");
            }
            pushBytes(reinterpret_cast<const std::uint8_t*>(text->data()), text->size());
            return {};
        }
    }
    pushBytes(bytes, count);
    return {};
}
