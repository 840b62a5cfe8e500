#include <VeltoConnectFoundation/Codecs/MZJSONSerializer.h>
#include <VeltoConnectFoundation/Codecs/MZMemoryOutputStream.h>
#include <VeltoConnectFoundation/Codecs/MZStringStreamReader.h>
#include <VeltoConnectFoundation/Codecs/MZUTF.h>
#include <VeltoConnectFoundation/Codecs/WriteAllPrivate.h>
#include <VeltoConnectFoundation/Platform/DateFormat.h>
#include <VeltoConnectFoundation/Platform/DoubleText.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/NumberText.h>
#include <VeltoConnectFoundation/Platform/ValueBlocks.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

namespace {

using velto::Error;
using velto::TextEncoding;
using velto::Value;
using velto::ValueKind;
using velto::detail::ValueAccess;
using namespace std::string_view_literals;

Error writerError(std::int64_t code, std::string_view description, const char* reason) {
    return Error::make(MZJSONSerlizationErrorDomain, code, description, velto::localized(reason));
}

/// Gathers bytes into runs for a stream. The first failure sticks, and what follows is dropped.
class Sink {
public:
    static constexpr std::size_t capacity = 8192;

    explicit Sink(velto::OutputStream& stream) : stream_(stream) {}

    bool failed() const noexcept { return failed_; }

    /// Where up to `count` bytes (at most the capacity) may be written; commit what was.
    char* room(std::size_t count) {
        if (static_cast<std::size_t>(buffer_.data() + capacity - next_) < count) {
            flush();
        }
        return next_;
    }
    void commit(char* end) noexcept { next_ = end; }

    void append(char byte) {
        char* place = room(1);
        *place = byte;
        commit(place + 1);
    }
    /// A keyword, a number or a character.
    void append(std::string_view bytes) {
        char* place = room(bytes.size());
        commit(std::copy(bytes.begin(), bytes.end(), place));
    }

    Error flush() {
        if (!failed_) {
            error_ = writeAll(stream_, reinterpret_cast<const std::uint8_t*>(buffer_.data()),
                              static_cast<std::size_t>(next_ - buffer_.data()),
                              MZJSONSerlizationErrorDomain);
            failed_ = static_cast<bool>(error_);
        }
        next_ = buffer_.data();
        return error_;
    }

private:
    velto::OutputStream& stream_;
    Error error_;
    bool failed_ = false;
    std::array<char, capacity> buffer_;
    char* next_ = buffer_.data();
};

constexpr char hexDigits[] = "0123456789abcdef";

/// Whether the byte is written otherwise than as itself, or needs a look at what follows it.
constexpr std::array<bool, 256> isSpecial = [] {
    std::array<bool, 256> special{};
    for (std::size_t byte = 0; byte < special.size(); ++byte) {
        special[byte] = byte < 0x20 || byte == '"' || byte == '/' || byte == '\\' || byte >= 0x80;
    }
    return special;
}();

constexpr std::uint64_t everyByte(std::uint8_t byte) {
    return std::uint64_t{0x0101010101010101} * byte;
}

/// Sets the highest bit of the special bytes; above the first of them it may set others too.
std::uint64_t specialBytes(std::uint64_t bytes) noexcept {
    const auto equal = [bytes](char byte) {
        return (bytes ^ everyByte(static_cast<std::uint8_t>(byte))) - everyByte(1);
    };
    const std::uint64_t hits = (bytes - everyByte(0x20)) | equal('"') | equal('/') | equal('\\');
    return ((hits & ~bytes) | bytes) & everyByte(0x80);
}

/// Writes JSON text into a sink in one encoding. The fast ways are for UTF-8.
class Writer {
public:
    Writer(TextEncoding encoding, velto::OutputStream& stream)
        : encoding_(encoding), sink_(stream) {}

    Error writeTree(const Value& root);
    void writeString(std::string_view string);
    Error writeNumber(const Value& number);
    void writeText(std::string_view ascii);
    /// What came before an error goes out first; an error of the stream was there earlier.
    Error finish(Error error) {
        Error failure = sink_.flush();
        return failure ? failure : error;
    }

private:
    Error writeScalar(const Value& value);
    void writePunctuation(char character) {
        if (encoding_ == TextEncoding::utf8) {
            sink_.append(character);
        } else {
            writeText({&character, 1});
        }
    }
    void writeUnit(char16_t unit);

    TextEncoding encoding_;
    Sink sink_;
    Value root_;  ///< Keeps the tree as it is whatever the stream's owner does meanwhile.
};

/// Two characters for what has a short form, else the six of "\u00xx".
std::size_t escapeText(char16_t unit, char* text) noexcept {
    text[0] = '\\';
    switch (unit) {
        case '\\':
        case '/':
        case '"':
            text[1] = static_cast<char>(unit);
            return 2;
        case '\b':
            text[1] = 'b';
            return 2;
        case '\t':
            text[1] = 't';
            return 2;
        case '\n':
            text[1] = 'n';
            return 2;
        case '\f':
            text[1] = 'f';
            return 2;
        case '\r':
            text[1] = 'r';
            return 2;
        default:
            std::copy_n("u00", 3, text + 1);
            text[4] = hexDigits[unit >> 4 & 0xF];
            text[5] = hexDigits[unit & 0xF];
            return 6;
    }
}

/// Writes the character that `at` begins, in UTF-8, and moves past it; answers the end. A byte
/// that belongs to no character becomes U+FFFD.
char* writeMultibyte(const char*& at, const char* end, char* out) noexcept {
    const auto byte = [at](std::ptrdiff_t index) { return static_cast<std::uint8_t>(at[index]); };
    const auto continues = [&](std::ptrdiff_t index) { return (byte(index) & 0xC0) == 0x80; };
    const std::uint8_t lead = byte(0);
    if (lead >= 0xE0 && lead < 0xF0) {
        if (end - at >= 3 && continues(1) && continues(2) && (lead != 0xE0 || byte(1) >= 0xA0)) {
            std::memcpy(out, at, 3);
            at += 3;
            return out + 3;
        }
    } else if (lead >= 0xC2 && lead < 0xE0) {
        if (end - at >= 2 && continues(1)) {
            std::memcpy(out, at, 2);
            at += 2;
            return out + 2;
        }
    } else if (lead >= 0xF0 && end - at >= 4 && continues(1) && continues(2) && continues(3)) {
        const std::uint32_t value = (lead & 0x07U) << 18 | (byte(1) & 0x3FU) << 12 |
                                    (byte(2) & 0x3FU) << 6 | (byte(3) & 0x3FU);
        if (lead < 0xF8 && value >= 0x10000 && value <= 0x10FFFF) {
            // Required: each half of a pair in three bytes of its own.
            const std::uint32_t high = 0xD7C0 + (value >> 10);
            const std::uint32_t low = 0xDC00 | (value & 0x3FF);
            for (const std::uint32_t unit : {high, low}) {
                *out++ = static_cast<char>(0xED);
                *out++ = static_cast<char>(0x80 | (unit >> 6 & 0x3F));
                *out++ = static_cast<char>(0x80 | (unit & 0x3F));
            }
            at += 4;
            return out;
        }
    }
    ++at;
    return std::copy_n("\xEF\xBF\xBD", 3, out);
}

/// Writes what stands between the quotation marks, in UTF-8; answers the end. Needs room for six
/// times the bytes and eight more.
char* writeEscaped(const char* at, const char* end, char* out) noexcept {
    while (at != end) {
        if constexpr (std::endian::native == std::endian::little) {
            // Eight bytes go out at once; those from a special one on are taken back.
            while (end - at >= 8) {
                std::uint64_t bytes;
                std::memcpy(&bytes, at, 8);
                std::memcpy(out, &bytes, 8);
                const std::uint64_t special = specialBytes(bytes);
                const int plain = std::countr_zero(special) / 8;
                out += plain;
                at += plain;
                if (special != 0) {
                    break;
                }
            }
        }
        while (at != end && !isSpecial[static_cast<unsigned char>(*at)]) {
            *out++ = *at++;
        }
        while (at != end && isSpecial[static_cast<unsigned char>(*at)]) {
            if (static_cast<signed char>(*at) < 0) {
                if constexpr (std::endian::native == std::endian::little) {
                    // Most characters beyond ASCII have three bytes; not an overlong form of them.
                    std::uint32_t bytes = 0;
                    while (end - at >= 4 && (std::memcpy(&bytes, at, 4), true) &&
                           (bytes & 0xC0C0F0) == 0x8080E0 && (bytes & 0x200F) != 0) {
                        std::memcpy(out, &bytes, 4);
                        at += 3;
                        out += 3;
                    }
                    if (static_cast<signed char>(*at) >= 0) {
                        continue;
                    }
                }
                out = writeMultibyte(at, end, out);
            } else {
                out += escapeText(static_cast<unsigned char>(*at++), out);
            }
        }
    }
    return out;
}

/// Where to cut a text that is too long to write at once: at most `length` bytes on, and not
/// inside a character.
const char* sliceEnd(const char* at, const char* end, std::ptrdiff_t length) noexcept {
    if (end - at <= length) {
        return end;
    }
    const char* const cut = at + length;
    for (int back = 0; back < 4; ++back) {
        if ((cut[-back] & 0xC0) != 0x80) {
            return cut - back;
        }
    }
    return cut;  // No character is that long: what stands there belongs to none.
}

void Writer::writeString(std::string_view string) {
    if (encoding_ == TextEncoding::utf8) {
        constexpr std::ptrdiff_t slice = 512;
        const char* at = string.data();
        const char* const end = at + string.size();
        char* out = sink_.room(1);
        *out++ = '"';
        do {
            sink_.commit(out);
            const char* cut = sliceEnd(at, end, slice);
            out = sink_.room(static_cast<std::size_t>(cut - at) * 6 + 9);
            out = writeEscaped(at, cut, out);
            at = cut;
        } while (at != end);
        *out++ = '"';
        sink_.commit(out);
        return;
    }
    writePunctuation('"');
    for (const char16_t unit : velto::utf16FromUTF8(string)) {
        if (unit < 0x80 && isSpecial[unit]) {
            char text[6];
            writeText({text, escapeText(unit, text)});
        } else {
            writeUnit(unit);
        }
    }
    writePunctuation('"');
}

void Writer::writeText(std::string_view ascii) {
    switch (encoding_) {
        case TextEncoding::utf8:
            sink_.append(ascii);
            return;
        case TextEncoding::utf16BigEndian:
        case TextEncoding::utf16LittleEndian:
            for (const char character : ascii) {
                writeUnit(static_cast<unsigned char>(character));
            }
            return;
        default:
            if (const auto bytes = velto::encodeText(ascii, encoding_)) {
                sink_.append(*bytes);
            }
    }
}

/// In any encoding but UTF-8.
void Writer::writeUnit(char16_t unit) {
    if (encoding_ != TextEncoding::utf16BigEndian && encoding_ != TextEncoding::utf16LittleEndian) {
        if (const auto bytes = velto::encodeText(velto::utf8FromUTF16({&unit, 1}), encoding_)) {
            sink_.append(*bytes);
        }
        return;
    }
    std::uint8_t bytes[2];
    std::size_t count = 0;
    if (encoding_ == TextEncoding::utf16BigEndian) {
        MZUTF16BEEncode16BitsToBytes(unit, bytes, count);
    } else {
        MZUTF16LEEncode16BitsToBytes(unit, bytes, count);
    }
    sink_.append({reinterpret_cast<const char*>(bytes), count});
}

Error Writer::writeNumber(const Value& number) {
    char text[velto::DoubleTextSize];
    const bool isUTF8 = encoding_ == TextEncoding::utf8;
    char* const place = isUTF8 ? sink_.room(sizeof(text)) : text;
    char* end = nullptr;
    switch (number.kind()) {
        case ValueKind::boolean:
            writeText(number.boolValue() ? "true"sv : "false"sv);
            return {};
        case ValueKind::unsignedInteger:
            end = std::to_chars(place, place + sizeof(text), number.unsignedValue()).ptr;
            break;
        case ValueKind::signedInteger:
            end = std::to_chars(place, place + sizeof(text), number.integerValue()).ptr;
            break;
        default: {
            const double value = number.doubleValue();
            if (std::isnan(value)) {
                return writerError(
                    -10002,
                    velto::localized("Invalid number value (NaN) cannot be written to a JSON "
                                     "stream."),
                    "Invalid number");
            }
            if (std::isinf(value)) {
                return writerError(
                    -10003,
                    velto::localized("Invalid number value (infinite) cannot be written to a "
                                     "JSON stream."),
                    "Invalid number");
            }
            if (number.kind() == ValueKind::singleFloat) {
                writeText(velto::numberText(static_cast<float>(value)));
                return {};
            }
            end = velto::writeDouble(place, value);
        }
    }
    if (isUTF8) {
        sink_.commit(end);
    } else {
        writeText({text, static_cast<std::size_t>(end - text)});
    }
    return {};
}

Error Writer::writeScalar(const Value& value) {
    switch (value.kind()) {
        case ValueKind::string:
            writeString(value.string());
            return {};
        case ValueKind::null:
            writeText("null"sv);
            return {};
        case ValueKind::date:
            writeString(velto::isoStringFromDate(value.date()));
            return {};
        case ValueKind::boolean:
        case ValueKind::signedInteger:
        case ValueKind::unsignedInteger:
        case ValueKind::singleFloat:
        case ValueKind::doubleFloat:
            return writeNumber(value);
        default:
            return writerError(-10001,
                               velto::localizedFormat("This class cannot be encoded into JSON: %@",
                                                      value.className()),
                               "Illegal class for serialization");
    }
}

/// A container that is being written. Its elements stay where they are while the root is kept.
struct Level {
    explicit Level(const velto::detail::ArrayBlock* array)
        : element(array == nullptr ? nullptr : array->values()),
          lastElement(array == nullptr ? nullptr : element + array->count) {}
    explicit Level(const velto::detail::DictionaryBlock* dictionary)
        : isDictionary(true),
          entry(dictionary == nullptr ? nullptr : dictionary->entries()),
          lastEntry(dictionary == nullptr ? nullptr : entry + dictionary->count) {}

    bool isDictionary = false;
    bool isFirst = true;
    bool isAtValue = false;  ///< The entry's key has been written.
    const Value* element = nullptr;
    const Value* lastElement = nullptr;
    const velto::DictionaryEntry* entry = nullptr;
    const velto::DictionaryEntry* lastEntry = nullptr;
};

Error Writer::writeTree(const Value& root) {
    root_ = root;
    std::vector<Level> levels;
    const Value* value = &root_;
    while (value != nullptr) {
        if (value->isArray()) {
            writePunctuation('[');
            levels.emplace_back(ValueAccess::array(*value));
        } else if (value->isDictionary()) {
            writePunctuation('{');
            levels.emplace_back(ValueAccess::dictionary(*value));
        } else if (Error error = writeScalar(*value)) {
            return error;
        }
        if (sink_.failed()) {
            return {};
        }
        value = nullptr;
        while (value == nullptr && !levels.empty()) {
            Level& level = levels.back();
            if (level.isAtValue) {
                writePunctuation(':');
                value = &(level.entry++)->value;
                level.isAtValue = false;
            } else if (level.element == level.lastElement && level.entry == level.lastEntry) {
                writePunctuation(level.isDictionary ? '}' : ']');
                levels.pop_back();
            } else {
                if (!level.isFirst) {
                    writePunctuation(',');
                }
                level.isFirst = false;
                level.isAtValue = level.isDictionary;
                value = level.isDictionary ? &level.entry->key : level.element++;
            }
        }
    }
    return {};
}

}  // namespace

MZJSONSerializer MZJSONSerializer::serializer() {
    return {};
}

std::optional<velto::Data> MZJSONSerializer::serializeToJSON(const Value& value,
                                                             Error* error) const {
    MZMemoryOutputStream stream;
    stream.open();
    if (Error failure = serializeToJSON(value, stream)) {
        velto::fail(error, std::move(failure));
        return std::nullopt;
    }
    stream.close();
    return stream.dataByResettingMemoryStream();
}

Error MZJSONSerializer::serializeToJSON(const Value& value, velto::OutputStream& stream) const {
    Writer writer(encoding_, stream);
    return writer.finish(writer.writeTree(value));
}

Error MZJSONSerializer::serializeStringToJSON(std::string_view string,
                                              velto::OutputStream& stream) const {
    Writer writer(encoding_, stream);
    writer.writeString(string);
    return writer.finish({});
}

Error MZJSONSerializer::serializeNullToJSON(velto::OutputStream& stream) const {
    Writer writer(encoding_, stream);
    writer.writeText("null"sv);
    return writer.finish({});
}

Error MZJSONSerializer::serializeArrayToJSON(const velto::Array& array,
                                             velto::OutputStream& stream) const {
    return serializeToJSON(array, stream);
}

Error MZJSONSerializer::serializeDictionaryToJSON(const velto::Dictionary& dictionary,
                                                  velto::OutputStream& stream) const {
    return serializeToJSON(dictionary, stream);
}

Error MZJSONSerializer::serializeNumberToJSON(const Value& number,
                                              velto::OutputStream& stream) const {
    Writer writer(encoding_, stream);
    return writer.finish(writer.writeNumber(number));
}

Error MZJSONSerializer::serializeDateToJSON(velto::Date date, velto::OutputStream& stream) const {
    Writer writer(encoding_, stream);
    writer.writeString(velto::isoStringFromDate(date));
    return writer.finish({});
}
