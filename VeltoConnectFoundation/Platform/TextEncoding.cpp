#include <VeltoConnectFoundation/Platform/TextEncoding.h>

#include <VeltoConnectFoundation/Platform/NumberText.h>

#include <unicode/uchar.h>
#include <unicode/ucnv.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <limits>
#include <memory>

namespace velto {

namespace {

constexpr char32_t invalid = 0xFFFFFFFF;
constexpr char32_t replacement = 0xFFFD;

constexpr bool isHighSurrogate(char32_t unit) {
    return (unit & 0xFFFFFC00U) == 0xD800;
}
constexpr bool isLowSurrogate(char32_t unit) {
    return (unit & 0xFFFFFC00U) == 0xDC00;
}
constexpr bool isSurrogate(char32_t unit) {
    return (unit & 0xFFFFF800U) == 0xD800;
}
constexpr char32_t pairOf(char32_t high, char32_t low) {
    return 0x10000 + ((high - 0xD800) << 10U) + (low - 0xDC00);
}

/// The number of ASCII bytes at the beginning of [at, end).
std::size_t asciiRun(const char* at, const char* end) noexcept {
    const char* const begin = at;
    constexpr std::uint64_t highBits = 0x8080808080808080U;
    const auto word = [&at](std::size_t index) {
        std::uint64_t bytes;
        std::memcpy(&bytes, at + index * sizeof bytes, sizeof bytes);
        return bytes;
    };
    while (end - at >= 32) {
        if (((word(0) | word(1) | word(2) | word(3)) & highBits) != 0) {
            break;
        }
        at += 32;
    }
    while (at != end && static_cast<signed char>(*at) >= 0) {
        ++at;
    }
    return static_cast<std::size_t>(at - begin);
}

/// The number of bytes at the beginning of [at, end) that are characters of three bytes, no
/// surrogates among them. One that ends the text may be left out.
std::size_t threeByteRun(const char* at, const char* end) noexcept {
    const char* const begin = at;
    if constexpr (std::endian::native == std::endian::little) {
        std::uint32_t bytes = 0;
        while (end - at >= 4 && (std::memcpy(&bytes, at, sizeof bytes), true) &&
               (bytes & 0xC0C0F0) == 0x8080E0 && (bytes & 0x200F) != 0 &&
               (bytes & 0x200F) != 0x200D) {
            at += 3;
        }
    }
    return static_cast<std::size_t>(at - begin);
}

/// The character at `at`, which moves past it; unpaired surrogates are let through. For a byte that
/// begins no whole character: `invalid`, one byte further.
char32_t nextCharacter(const char*& at, const char* end) noexcept {
    const auto byte = [&](std::ptrdiff_t index) -> char32_t {
        return static_cast<unsigned char>(at[index]);
    };
    const auto continues = [&](std::ptrdiff_t index) { return (byte(index) & 0xC0U) == 0x80; };
    const char32_t lead = byte(0);
    const std::ptrdiff_t room = end - at;
    if (lead < 0x80) {
        ++at;
        return lead;
    }
    if (lead >= 0xC2 && lead < 0xE0) {
        if (room >= 2 && continues(1)) {
            const char32_t character = ((lead & 0x1FU) << 6U) | (byte(1) & 0x3FU);
            at += 2;
            return character;
        }
    } else if ((lead & 0xF0U) == 0xE0) {
        if (room >= 3 && continues(1) && continues(2)) {
            const char32_t character =
                ((lead & 0x0FU) << 12U) | ((byte(1) & 0x3FU) << 6U) | (byte(2) & 0x3FU);
            if (character >= 0x800) {
                at += 3;
                return character;
            }
        }
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        if (room >= 4 && continues(1) && continues(2) && continues(3)) {
            const char32_t character = ((lead & 0x07U) << 18U) | ((byte(1) & 0x3FU) << 12U) |
                                       ((byte(2) & 0x3FU) << 6U) | (byte(3) & 0x3FU);
            if (character >= 0x10000 && character <= 0x10FFFF) {
                at += 4;
                return character;
            }
        }
    }
    ++at;
    return invalid;
}

/// The character that ends at `at`, which moves before it.
char32_t previousCharacter(const char* begin, const char*& at) noexcept {
    const char* const end = at;
    const auto continues = [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80;
    };
    const char* start = end - 1;
    while (start != begin && end - start < 4 && continues(*start)) {
        --start;
    }
    const char* next = start;
    const char32_t character = nextCharacter(next, end);
    at = next == end ? start : end - 1;
    return next == end ? character : invalid;
}

void appendUTF8(std::string& out, char32_t character) {
    const auto put = [&](char32_t byte) { out += static_cast<char>(byte); };
    if (character < 0x80) {
        put(character);
    } else if (character < 0x800) {
        put(0xC0 | (character >> 6U));
        put(0x80 | (character & 0x3FU));
    } else if (character < 0x10000) {
        put(0xE0 | (character >> 12U));
        put(0x80 | ((character >> 6U) & 0x3FU));
        put(0x80 | (character & 0x3FU));
    } else {
        put(0xF0 | (character >> 18U));
        put(0x80 | ((character >> 12U) & 0x3FU));
        put(0x80 | ((character >> 6U) & 0x3FU));
        put(0x80 | (character & 0x3FU));
    }
}

/// Calls `take` for each character until it answers false.
template <class Take>
bool everyCharacter(std::string_view text, Take take) {
    const char* at = text.data();
    const char* const end = at + text.size();
    while (at != end) {
        if (!take(nextCharacter(at, end))) {
            return false;
        }
    }
    return true;
}

template <class Unit>
Unit loadUnit(const char* bytes, std::endian order) {
    Unit unit = 0;
    for (std::size_t index = 0; index < sizeof(Unit); ++index) {
        const std::size_t place = order == std::endian::big ? sizeof(Unit) - 1 - index : index;
        unit = static_cast<Unit>(
            unit | static_cast<Unit>(static_cast<Unit>(static_cast<unsigned char>(bytes[index]))
                                     << (8 * place)));
    }
    return unit;
}

template <class Unit>
void appendUnit(std::string& out, Unit unit, std::endian order) {
    for (std::size_t index = 0; index < sizeof(Unit); ++index) {
        const std::size_t place = order == std::endian::big ? sizeof(Unit) - 1 - index : index;
        out += static_cast<char>((std::uint32_t{unit} >> (8 * place)) & 0xFFU);
    }
}

/// Takes a byte-order mark off; big endian without one.
template <class Unit>
std::endian takeByteOrderMark(std::string_view& bytes) {
    if (bytes.size() >= sizeof(Unit)) {
        for (const std::endian order : {std::endian::big, std::endian::little}) {
            if (loadUnit<Unit>(bytes.data(), order) == 0xFEFF) {
                bytes.remove_prefix(sizeof(Unit));
                return order;
            }
        }
    }
    return std::endian::big;
}

std::optional<std::string> decodeUTF16(std::string_view bytes, std::endian order) {
    if (bytes.size() % 2 != 0) {
        return std::nullopt;
    }
    std::u16string units(bytes.size() / 2, u'\0');
    for (std::size_t index = 0; index < units.size(); ++index) {
        units[index] = loadUnit<char16_t>(bytes.data() + 2 * index, order);
    }
    return utf8FromUTF16(units);
}

std::optional<std::string> decodeUTF32(std::string_view bytes, std::endian order) {
    if (bytes.size() % 4 != 0) {
        return std::nullopt;
    }
    std::string out;
    out.reserve(bytes.size() / 2);
    for (std::size_t at = 0; at < bytes.size(); at += 4) {
        const auto character = loadUnit<char32_t>(bytes.data() + at, order);
        if (character > 0x10FFFF || isSurrogate(character)) {
            return std::nullopt;
        }
        appendUTF8(out, character);
    }
    return out;
}

std::string encodeUTF16(std::string_view text, std::endian order, bool hasMark) {
    const std::u16string units = utf16FromUTF8(text);
    std::string out;
    out.reserve(2 * units.size() + 2);
    if (hasMark) {
        appendUnit(out, u'\uFEFF', order);
    }
    for (const char16_t unit : units) {
        appendUnit(out, unit, order);
    }
    return out;
}

std::optional<std::string> encodeUTF32(std::string_view text, std::endian order, bool hasMark) {
    std::string out;
    out.reserve(4 * text.size() + 4);
    if (hasMark) {
        appendUnit(out, U'\uFEFF', order);
    }
    const bool isWhole = everyCharacter(text, [&](char32_t character) {
        appendUnit(out, character, order);
        return character != invalid && !isSurrogate(character);
    });
    return isWhole ? std::optional(std::move(out)) : std::nullopt;
}

std::string decodeLatin1(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size() + bytes.size() / 8);
    const char* at = bytes.data();
    const char* const end = at + bytes.size();
    while (at != end) {
        const std::size_t run = asciiRun(at, end);
        out.append(at, run);
        at += run;
        for (; at != end && static_cast<signed char>(*at) < 0; ++at) {
            appendUTF8(out, static_cast<unsigned char>(*at));
        }
    }
    return out;
}

std::optional<std::string> encodeBytes(std::string_view text, char32_t last) {
    std::string out;
    out.reserve(text.size());
    const bool isWhole = everyCharacter(text, [&](char32_t character) {
        out += static_cast<char>(character);
        return character <= last;
    });
    return isWhole ? std::optional(std::move(out)) : std::nullopt;
}

bool isASCII(std::string_view text) noexcept {
    return asciiRun(text.data(), text.data() + text.size()) == text.size();
}

struct CloseConverter {
    void operator()(UConverter* converter) const noexcept { ucnv_close(converter); }
};
using Converter = std::unique_ptr<UConverter, CloseConverter>;

/// A converter that stops at what it cannot convert; null when there is no such charset.
Converter openConverter(std::string_view name) {
    // An empty name would open the process's own charset.
    if (name.empty() || name.find('\0') != name.npos) {
        return nullptr;
    }
    UErrorCode status = U_ZERO_ERROR;
    Converter converter(ucnv_open(std::string(name).c_str(), &status));
    ucnv_setToUCallBack(converter.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr,
                        &status);
    ucnv_setFromUCallBack(converter.get(), UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr,
                          &status);
    return U_SUCCESS(status) ? std::move(converter) : nullptr;
}

bool fitsICU(std::size_t size) {
    return size <= std::numeric_limits<std::int32_t>::max() / 8;
}

std::optional<std::string> decodeByICU(std::string_view bytes, std::string_view name) {
    const Converter converter = openConverter(name);
    if (converter == nullptr || !fitsICU(bytes.size())) {
        return std::nullopt;
    }
    std::u16string units(2 * bytes.size() + 1, u'\0');
    UErrorCode status = U_ZERO_ERROR;
    const std::int32_t length =
        ucnv_toUChars(converter.get(), units.data(), static_cast<std::int32_t>(units.size()),
                      bytes.data(), static_cast<std::int32_t>(bytes.size()), &status);
    if (U_FAILURE(status)) {
        return std::nullopt;
    }
    return utf8FromUTF16(std::u16string_view(units).substr(0, static_cast<std::size_t>(length)));
}

std::optional<std::string> encodeByICU(std::string_view text, std::string_view name) {
    const Converter converter = openConverter(name);
    if (converter == nullptr || !fitsICU(text.size()) || !isValidUTF8(text)) {
        return std::nullopt;
    }
    const std::u16string units = utf16FromUTF8(text);
    std::string out(4 * units.size() + 16, '\0');
    UErrorCode status = U_ZERO_ERROR;
    const std::int32_t length =
        ucnv_fromUChars(converter.get(), out.data(), static_cast<std::int32_t>(out.size()),
                        units.data(), static_cast<std::int32_t>(units.size()), &status);
    if (U_FAILURE(status)) {
        return std::nullopt;
    }
    out.resize(static_cast<std::size_t>(length));
    return out;
}

/// The encodings that are left to ICU; empty for any other.
std::string_view nameForICU(TextEncoding encoding) {
    switch (encoding) {
        case TextEncoding::macRoman:
            return "macintosh";
        case TextEncoding::windowsLatin1:
            return "windows-1252";
        case TextEncoding::shiftJIS:
            return "Shift_JIS";
        default:
            return {};
    }
}

/// The encoding of a name that needs no ICU.
std::optional<TextEncoding> plainEncodingWithName(std::string_view name) {
    struct Row {
        std::string_view name;
        TextEncoding encoding;
    };
    static constexpr std::array<Row, 11> rows{{
        {"utf-8", TextEncoding::utf8},
        {"utf8", TextEncoding::utf8},
        {"iso-8859-1", TextEncoding::isoLatin1},
        {"latin1", TextEncoding::isoLatin1},
        {"us-ascii", TextEncoding::ascii},
        {"utf-16", TextEncoding::utf16},
        {"utf-16be", TextEncoding::utf16BigEndian},
        {"utf-16le", TextEncoding::utf16LittleEndian},
        {"utf-32", TextEncoding::utf32},
        {"utf-32be", TextEncoding::utf32BigEndian},
        {"utf-32le", TextEncoding::utf32LittleEndian},
    }};
    for (const Row& row : rows) {
        if (name.size() == row.name.size() && findIgnoringCase(name, row.name) == 0) {
            return row.encoding;
        }
    }
    return std::nullopt;
}

char32_t folded(char32_t character) noexcept {
    if (character < 0x80) {
        return character >= 'A' && character <= 'Z' ? character + ('a' - 'A') : character;
    }
    if (character == invalid) {
        return invalid;
    }
    return static_cast<char32_t>(u_foldCase(static_cast<UChar32>(character), U_FOLD_CASE_DEFAULT));
}

}  // namespace

std::optional<std::string> decodeText(std::string_view bytes, TextEncoding encoding) {
    switch (encoding) {
        case TextEncoding::ascii:
            return isASCII(bytes) ? std::optional<std::string>(bytes) : std::nullopt;
        case TextEncoding::utf8:
            return isValidUTF8(bytes) ? std::optional<std::string>(bytes) : std::nullopt;
        case TextEncoding::isoLatin1:
            return decodeLatin1(bytes);
        case TextEncoding::utf16: {
            const std::endian order = takeByteOrderMark<char16_t>(bytes);
            return decodeUTF16(bytes, order);
        }
        case TextEncoding::utf16BigEndian:
            return decodeUTF16(bytes, std::endian::big);
        case TextEncoding::utf16LittleEndian:
            return decodeUTF16(bytes, std::endian::little);
        case TextEncoding::utf32: {
            const std::endian order = takeByteOrderMark<char32_t>(bytes);
            return decodeUTF32(bytes, order);
        }
        case TextEncoding::utf32BigEndian:
            return decodeUTF32(bytes, std::endian::big);
        case TextEncoding::utf32LittleEndian:
            return decodeUTF32(bytes, std::endian::little);
        case TextEncoding::macRoman:
        case TextEncoding::windowsLatin1:
        case TextEncoding::shiftJIS:
            break;
    }
    return decodeByICU(bytes, nameForICU(encoding));
}

std::optional<std::string> encodeText(std::string_view text, TextEncoding encoding) {
    switch (encoding) {
        case TextEncoding::ascii:
            return encodeBytes(text, 0x7F);
        case TextEncoding::utf8:
            return isValidUTF8(text) ? std::optional<std::string>(text) : std::nullopt;
        case TextEncoding::isoLatin1:
            return encodeBytes(text, 0xFF);
        case TextEncoding::utf16:
            return encodeUTF16(text, std::endian::little, true);
        case TextEncoding::utf16BigEndian:
            return encodeUTF16(text, std::endian::big, false);
        case TextEncoding::utf16LittleEndian:
            return encodeUTF16(text, std::endian::little, false);
        case TextEncoding::utf32:
            return encodeUTF32(text, std::endian::little, true);
        case TextEncoding::utf32BigEndian:
            return encodeUTF32(text, std::endian::big, false);
        case TextEncoding::utf32LittleEndian:
            return encodeUTF32(text, std::endian::little, false);
        case TextEncoding::macRoman:
        case TextEncoding::windowsLatin1:
        case TextEncoding::shiftJIS:
            break;
    }
    return encodeByICU(text, nameForICU(encoding));
}

std::optional<std::string> decodeText(std::string_view bytes, std::string_view ianaName) {
    const std::optional<TextEncoding> plain = plainEncodingWithName(ianaName);
    return plain ? decodeText(bytes, *plain) : decodeByICU(bytes, ianaName);
}

bool isKnownCharset(std::string_view ianaName) {
    return plainEncodingWithName(ianaName) || openConverter(ianaName) != nullptr;
}

bool isValidUTF8(std::string_view text) noexcept {
    const char* at = text.data();
    const char* const end = at + text.size();
    while (at != end) {
        at += asciiRun(at, end);
        while (at != end && static_cast<signed char>(*at) < 0) {
            at += threeByteRun(at, end);
            if (at == end || static_cast<signed char>(*at) >= 0) {
                break;
            }
            const char32_t character = nextCharacter(at, end);
            if (character == invalid || isSurrogate(character)) {
                return false;
            }
        }
    }
    return true;
}

std::u16string utf16FromUTF8(std::string_view text) {
    std::u16string units(text.size(), u'\0');  // never more units than bytes
    char16_t* out = units.data();
    const char* at = text.data();
    const char* const end = at + text.size();
    while (at != end) {
        const std::size_t run = asciiRun(at, end);
        out = std::copy_n(at, run, out);
        at += run;
        while (at != end && static_cast<signed char>(*at) < 0) {
            const char32_t character = nextCharacter(at, end);
            if (character == invalid) {
                *out++ = static_cast<char16_t>(replacement);
            } else if (character < 0x10000) {
                *out++ = static_cast<char16_t>(character);
            } else {
                *out++ = static_cast<char16_t>(0xD7C0 + (character >> 10U));
                *out++ = static_cast<char16_t>(0xDC00 + (character & 0x3FFU));
            }
        }
    }
    units.resize(static_cast<std::size_t>(out - units.data()));
    return units;
}

std::string utf8FromUTF16(std::u16string_view units) {
    std::string out;
    out.reserve(units.size() + units.size() / 2);
    for (std::size_t at = 0; at < units.size(); ++at) {
        const char32_t unit = units[at];
        if (isHighSurrogate(unit) && at + 1 < units.size() && isLowSurrogate(units[at + 1])) {
            appendUTF8(out, pairOf(unit, units[++at]));
        } else {
            appendUTF8(out, unit);
        }
    }
    return out;
}

std::size_t utf16Length(std::string_view text) noexcept {
    std::size_t length = 0;
    const char* at = text.data();
    const char* const end = at + text.size();
    while (at != end) {
        const std::size_t run = asciiRun(at, end);
        length += run;
        at += run;
        while (at != end && static_cast<signed char>(*at) < 0) {
            const char32_t character = nextCharacter(at, end);
            length += character != invalid && character >= 0x10000 ? 2 : 1;
        }
    }
    return length;
}

std::string utf16Prefix(std::string_view text, std::size_t units) {
    const char* at = text.data();
    const char* const end = at + text.size();
    while (at != end && units > 0) {
        const char* const start = at;
        const char32_t character = nextCharacter(at, end);
        const std::size_t length = character != invalid && character >= 0x10000 ? 2 : 1;
        if (length > units) {
            std::string out(text.data(), start);
            appendUTF8(out, 0xD7C0 + (character >> 10U));
            return out;
        }
        units -= length;
    }
    return std::string(text.data(), at);
}

std::size_t findIgnoringCase(std::string_view text,
                             std::string_view what,
                             std::size_t from) noexcept {
    if (from > text.size()) {
        return text.npos;
    }
    if (what.empty()) {
        return from;
    }
    const char* const textEnd = text.data() + text.size();
    const char* const whatEnd = what.data() + what.size();
    const char* afterFirst = what.data();
    const char32_t first = folded(nextCharacter(afterFirst, whatEnd));
    for (const char* at = text.data() + from; at != textEnd;) {
        const char* const start = at;
        if (folded(nextCharacter(at, textEnd)) != first) {
            continue;
        }
        const char* left = at;
        const char* right = afterFirst;
        while (left != textEnd && right != whatEnd) {
            if (folded(nextCharacter(left, textEnd)) != folded(nextCharacter(right, whatEnd))) {
                break;
            }
            if (right == whatEnd) {
                return static_cast<std::size_t>(start - text.data());
            }
        }
        if (afterFirst == whatEnd) {
            return static_cast<std::size_t>(start - text.data());
        }
    }
    return text.npos;
}

bool isWhiteSpace(char32_t character) noexcept {
    return (character >= 0x09 && character <= 0x0D) || character == 0x20 || character == 0x85 ||
           character == 0xA0 || character == 0x1680 ||
           (character >= 0x2000 && character <= 0x200A) || character == 0x2028 ||
           character == 0x2029 || character == 0x202F || character == 0x205F || character == 0x3000;
}

std::string_view trimmed(std::string_view text) noexcept {
    const char* begin = text.data();
    const char* end = begin + text.size();
    for (const char* next = begin; begin != end; begin = next) {
        if (!isWhiteSpace(nextCharacter(next, end))) {
            break;
        }
    }
    for (const char* previous = end; begin != end; end = previous) {
        if (!isWhiteSpace(previousCharacter(begin, previous))) {
            break;
        }
    }
    return std::string_view(begin, static_cast<std::size_t>(end - begin));
}

std::vector<std::string_view> split(std::string_view text, std::string_view separator) {
    std::vector<std::string_view> pieces;
    if (!separator.empty()) {
        for (std::size_t at = text.find(separator); at != text.npos; at = text.find(separator)) {
            pieces.push_back(text.substr(0, at));
            text.remove_prefix(at + separator.size());
        }
    }
    pieces.push_back(text);
    return pieces;
}

std::string replaceAll(std::string_view text, std::string_view what, std::string_view with) {
    std::string out;
    out.reserve(text.size());
    if (!what.empty()) {
        for (std::size_t at = text.find(what); at != text.npos; at = text.find(what)) {
            out.append(text.substr(0, at)).append(with);
            text.remove_prefix(at + what.size());
        }
    }
    out.append(text);
    return out;
}

std::int64_t leadingInteger(std::string_view text) noexcept {
    return leadingSigned(trimmed(text));
}

}  // namespace velto
