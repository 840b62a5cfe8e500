#include <VeltoConnectFoundation/Codecs/MZJSONTextSource.h>

#include <VeltoConnectFoundation/Codecs/MZStringStreamReader.h>

#include <bit>
#include <cstring>
#include <utility>

namespace {

using velto::TextEncoding;

constexpr std::size_t blockSize = 8192;
/// No character is longer, in any encoding.
constexpr std::size_t longestCharacter = 4;

/// What a failed stream is replaced by.
class FailedStream final : public velto::InputStream {
public:
    explicit FailedStream(velto::Error error) : error_(std::move(error)) {}

    void open() override {}
    void close() override {}
    velto::StreamStatus streamStatus() const override { return velto::StreamStatus::error; }
    velto::Error streamError() const override { return error_; }
    std::ptrdiff_t read(std::uint8_t*, std::size_t) override { return -1; }

private:
    velto::Error error_;
};

/// Units of a fixed width in a named byte order.
template <class Unit, std::endian order>
class Units {
public:
    explicit Units(std::string_view bytes) noexcept
        : next_(bytes.data()), end_(bytes.data() + bytes.size() / sizeof(Unit) * sizeof(Unit)) {}

    std::size_t left() const noexcept {
        return static_cast<std::size_t>(end_ - next_) / sizeof(Unit);
    }
    const char* next() const noexcept { return next_; }
    void skip(std::size_t count) noexcept { next_ += count * sizeof(Unit); }

    std::uint32_t peek(std::size_t index = 0) const noexcept {
        Unit unit;
        std::memcpy(&unit, next_ + index * sizeof(Unit), sizeof unit);
        if constexpr (order == std::endian::native) {
            return unit;
        } else if constexpr (sizeof(Unit) == 2) {
            return __builtin_bswap16(unit);
        } else {
            return __builtin_bswap32(unit);
        }
    }

    /// Units that are ASCII, as many as fill a word at once, become a byte each.
    char* takeASCII(char* out) noexcept {
        if constexpr (std::endian::native != std::endian::little) {
            return out;
        }
        constexpr std::size_t count = sizeof(std::uint64_t) / sizeof(Unit);
        constexpr int shift = order == std::endian::native ? 0 : 8 * (sizeof(Unit) - 1);
        constexpr std::uint64_t ascii = sizeof(Unit) == 2 ? 0x007F007F007F007F : 0x0000007F0000007F;
        for (; left() >= count; skip(count), out += count) {
            std::uint64_t word;
            std::memcpy(&word, next_, sizeof word);
            if ((word & ~(ascii << shift)) != 0) {
                break;
            }
            word >>= shift;
            if constexpr (sizeof(Unit) == 2) {
                word = (word | word >> 8) & 0x0000FFFF0000FFFF;
                word |= word >> 16;
            } else {
                word |= word >> 24;
            }
            std::memcpy(out, &word, count);
        }
        return out;
    }

private:
    const char* next_;
    const char* end_;
};

/// The character that the units begin with and how many they are for it; none for a lone or
/// incomplete surrogate, or a value beyond Unicode.
template <class Unit>
std::size_t characterOf(const Unit& units, char32_t& character) noexcept {
    character = units.peek();
    if (character < 0xD800 || (character >= 0xE000 && character <= 0x10FFFF)) {
        return 1;
    }
    if (character < 0xDC00 && units.left() > 1 && (units.peek(1) & ~0x3FFU) == 0xDC00) {
        character = 0x10000 + ((character & 0x3FF) << 10) + (units.peek(1) & 0x3FF);
        return 2;
    }
    return 0;
}

/// Appends the characters that `bytes` begins with, and cuts them off it.
template <class Unit, std::endian order>
void appendCharacters(std::string& text, std::string_view& bytes) {
    Units<Unit, order> units(bytes);
    const std::size_t before = text.size();
    // At most three bytes come of a unit in UTF-16, four in UTF-32.
    text.resize(before + units.left() * (sizeof(Unit) == 2 ? 3 : 4));
    char* out = text.data() + before;
    std::size_t count = 1;
    while (count != 0 && units.left() != 0) {
        out = units.takeASCII(out);
        // Few characters beyond ASCII stand alone.
        for (int run = 0; run < 8 && count != 0 && units.left() != 0; ++run) {
            char32_t character = 0;
            count = characterOf(units, character);
            if (count != 0) {
                out = MZWriteUTF8(out, character);
                units.skip(count);
            }
        }
    }
    text.resize(static_cast<std::size_t>(out - text.data()));
    bytes.remove_prefix(static_cast<std::size_t>(units.next() - bytes.data()));
}

}  // namespace

MZJSONTextSource::MZJSONTextSource(TextEncoding encoding,
                                   std::shared_ptr<velto::InputStream> stream,
                                   std::string_view first)
    : encoding_(encoding), stream_(std::move(stream)) {
    append(first);
}

bool MZJSONTextSource::readMore(std::size_t bytes) {
    for (std::size_t sum = 0;;) {
        if (isEnded_ || error_ || rest_.size() >= longestCharacter) {
            return sum != 0;
        }
        if (sum != 0 && sum >= bytes) {
            return true;
        }
        // What needs no change is read to its place.
        std::string& place = encoding_ == TextEncoding::utf8 ? text_ : rest_;
        const std::size_t before = place.size();
        place.resize(before + blockSize);
        std::size_t obtained = 0;
        isEnded_ = !MZReadBytesFromStream(*stream_, reinterpret_cast<std::uint8_t*>(&place[before]),
                                          blockSize, obtained, error_);
        if (error_) {
            obtained = 0;
        }
        place.resize(before + obtained);
        sum += obtained;
        if (encoding_ != TextEncoding::utf8) {
            const std::string all = std::exchange(rest_, {});
            append(all);
        }
    }
}

void MZJSONTextSource::append(std::string_view bytes) {
    switch (encoding_) {
        case TextEncoding::utf16LittleEndian:
            appendCharacters<std::uint16_t, std::endian::little>(text_, bytes);
            break;
        case TextEncoding::utf16BigEndian:
            appendCharacters<std::uint16_t, std::endian::big>(text_, bytes);
            break;
        case TextEncoding::utf32LittleEndian:
            appendCharacters<std::uint32_t, std::endian::little>(text_, bytes);
            break;
        case TextEncoding::utf32BigEndian:
            appendCharacters<std::uint32_t, std::endian::big>(text_, bytes);
            break;
        default:
            text_.append(bytes);
            bytes = {};
            break;
    }
    rest_.append(bytes);
}

std::string MZJSONTextSource::bytes() const {
    return encoding_ == TextEncoding::utf8 ? text_
                                           : velto::encodeText(text_, encoding_).value() + rest_;
}

std::shared_ptr<velto::InputStream> MZJSONTextSource::stream() const {
    return error_ ? std::make_shared<FailedStream>(error_) : stream_;
}
