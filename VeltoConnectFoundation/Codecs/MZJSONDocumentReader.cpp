#include <VeltoConnectFoundation/Codecs/MZJSONDocumentReader.h>

#include <VeltoConnectFoundation/Codecs/MZJSONNumber.h>
#include <VeltoConnectFoundation/Codecs/MZJSONTextSource.h>
#include <VeltoConnectFoundation/Platform/UTF8Text.h>

#include <array>
#include <bit>
#include <cmath>
#include <experimental/simd>
#include <iterator>
#include <limits>
#include <utility>

using velto::Value;

namespace {

namespace simd = std::experimental;
using Block = simd::native_simd<unsigned char>;

constexpr unsigned char quotationMark = '"';
constexpr unsigned char backslash = '\\';

bool isDigit(char character) noexcept {
    return character >= '0' && character <= '9';
}

/// What else belongs to a number's run besides digits.
bool continuesNumber(char character) noexcept {
    return character == '.' || character == 'e' || character == 'E' || character == '-' ||
           character == '+';
}

bool isWhiteSpace(char character) noexcept {
    return character == ' ' || character == '\n' || character == '\r' || character == '\t';
}

bool isAfterWhiteSpace(char character) noexcept {
    return static_cast<unsigned char>(character) > ' ';
}

/// Most often a single blank, or a line break before an indentation.
const char* skipRunOfWhiteSpace(const char* at, const char* end) noexcept {
    while (isWhiteSpace(*at)) {
        ++at;
        if (end - at >= static_cast<std::ptrdiff_t>(Block::size()) && isWhiteSpace(*at)) {
            const Block block(reinterpret_cast<const unsigned char*>(at), simd::element_aligned);
            const auto other = !((block == static_cast<unsigned char>(' ')) ||
                                 (block == static_cast<unsigned char>('\n')) ||
                                 (block == static_cast<unsigned char>('\r')) ||
                                 (block == static_cast<unsigned char>('\t')));
            if (simd::any_of(other)) {
                return at + simd::find_first_set(other);
            }
            at += Block::size();
        }
    }
    return at;
}

/// Ends at the first other character, which there is at `end` at the latest.
const char* skipWhiteSpace(const char* at, const char* end) noexcept {
    return isAfterWhiteSpace(*at) ? at : skipRunOfWhiteSpace(at, end);
}

bool isControl(char character) noexcept {
    return static_cast<unsigned char>(character) < 0x20;
}

/// The first quotation mark, backslash or control character from `at` on, or `end`. `isPlain`
/// becomes false when a character beyond ASCII stands before it.
[[gnu::always_inline]] inline const char* findSpecial(const char* at,
                                                      const char* end,
                                                      bool& isPlain) noexcept {
    while (end - at >= static_cast<std::ptrdiff_t>(Block::size())) {
        const Block block(reinterpret_cast<const unsigned char*>(at), simd::element_aligned);
        const auto special = (block == quotationMark) || (block == backslash) ||
                             (block < static_cast<unsigned char>(0x20));
        const auto beyond = block >= static_cast<unsigned char>(0x80);
        if (simd::any_of(special)) [[likely]] {
            const int first = simd::find_first_set(special);
            if (simd::any_of(beyond) && simd::find_first_set(beyond) < first) {
                isPlain = false;
            }
            return at + first;
        }
        isPlain = isPlain && simd::none_of(beyond);
        at += Block::size();
    }
    for (; at != end; ++at) {
        if (*at == '"' || *at == '\\' || isControl(*at)) {
            return at;
        }
        isPlain = isPlain && (*at & 0x80) == 0;
    }
    return end;
}

/// The four digits of a "\u" escape; -1 when one of them is none.
int hexadecimal(const char* digits) noexcept {
    int value = 0;
    for (int i = 0; i < 4; ++i) {
        const char c = digits[i];
        const char lower = static_cast<char>(c | 0x20);
        if (isDigit(c)) {
            value = value * 16 + (c - '0');
        } else if (lower >= 'a' && lower <= 'f') {
            value = value * 16 + (lower - 'a' + 10);
        } else {
            return -1;
        }
    }
    return value;
}

using Wide = __uint128_t;

constexpr int longestFraction = 19;

/// For a quotient by 10^places, that is 5^places and a power of two.
struct Divisor {
    std::uint64_t reciprocal;  ///< Of 5^places, cut to 64 bits: 2^(63 + bits) / 5^places.
    int exponent;              ///< What the quotient's high word is multiplied with: 2^exponent.
};

/// By the number of places; not for 0.
constexpr auto divisors = [] {
    std::array<Divisor, longestFraction + 1> result{};
    std::uint64_t power = 1;
    for (int places = 1; places <= longestFraction; ++places) {
        power *= 5;
        const auto bits = static_cast<int>(std::bit_width(power));
        result[static_cast<std::size_t>(places)] = {
            static_cast<std::uint64_t>((Wide{1} << (63 + bits)) / power), 1 - bits - places};
    }
    return result;
}();

constexpr double powersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,
                                  1e10, 1e11, 1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19};
static_assert(std::size(powersOfTen) == longestFraction + 1);

/// mantissa / 10^places, rounded as the exact quotient is; NaN when that is not certain.
double quotient(std::uint64_t mantissa, std::size_t places) noexcept {
    if (mantissa <= std::uint64_t{1} << 53) {
        // Doubles hold both exactly, so that the quotient is rounded but once.
        return static_cast<double>(static_cast<std::int64_t>(mantissa)) / powersOfTen[places];
    }
    if (places == 0) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    // The cut reciprocal makes the high word too small by one at most: it decides unless that one
    // could change the rounding to 53 bits.
    const Divisor& divisor = divisors[places];
    const int zeros = std::countl_zero(mantissa);
    const auto high =
        static_cast<std::uint64_t>((Wide{mantissa << zeros} * divisor.reciprocal) >> 64);
    const int surplus = high >> 63 != 0 ? 11 : 10;
    const std::uint64_t half = std::uint64_t{1} << (surplus - 1);
    const std::uint64_t cut = high & (2 * half - 1);
    if (cut == half || cut == half - 1) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    const auto rounded = static_cast<std::int64_t>((high >> surplus) + (cut > half ? 1 : 0));
    const auto exponent = static_cast<std::uint64_t>(1023 + divisor.exponent + surplus - zeros);
    return static_cast<double>(rounded) * std::bit_cast<double>(exponent << 52);
}

constexpr std::array<std::uint64_t, 8> wholePowersOfTen = {1,      10,      100,       1'000,
                                                           10'000, 100'000, 1'000'000, 10'000'000};

/// Appends the digits from `at` on to `mantissa`, modulo 2^64. Ends at the first other character,
/// which there is at `end` at the latest.
[[gnu::always_inline]] inline const char* readDigits(const char* at,
                                                     const char* end,
                                                     std::uint64_t& mantissa) noexcept {
    if constexpr (std::endian::native == std::endian::little) {
        // Eight characters at a time, however many of them are digits: a loop over a few digits
        // ends where the processor does not expect it.
        while (end - at >= 8) {
            std::uint64_t digits;
            std::memcpy(&digits, at, sizeof digits);
            digits ^= 0x3030303030303030;
            const std::uint64_t others =
                ((digits + 0x7676767676767676) | digits) & 0x8080808080808080;
            const int count = others == 0 ? 8 : std::countr_zero(others) / 8;
            if (count == 0) {
                return at;
            }
            // With zeros in front for the rest: pairs of digits, then of pairs, then of fours.
            digits <<= 64 - 8 * count;
            digits = digits * 10 + (digits >> 8);
            digits = ((digits & 0x000000FF000000FF) * 0x000F424000000064 +
                      ((digits >> 16) & 0x000000FF000000FF) * 0x0000271000000001) >>
                     32;
            at += count;
            if (count < 8) {
                mantissa = mantissa * wholePowersOfTen[static_cast<std::size_t>(count)] + digits;
                return at;
            }
            mantissa = mantissa * 100'000'000 + digits;
        }
    }
    for (; isDigit(*at); ++at) {
        mantissa = mantissa * 10 + static_cast<std::uint64_t>(*at - '0');
    }
    return at;
}

}  // namespace

MZJSONDocumentReader::MZJSONDocumentReader(std::size_t expectedBytes) : builder_(expectedBytes) {
}

Value MZJSONDocumentReader::readWhole(std::string_view text) {
    const char* end = text.data() + text.size();
    while (end != text.data() && isWhiteSpace(end[-1])) {
        --end;
    }
    const char* at = text.data();
    // The bracket at the end stops whatever runs on.
    const bool isBracketed = end != at && (end[-1] == ']' || end[-1] == '}');
    MZJSONDocumentReader reader(text.size());
    return isBracketed && reader.read(at, end) == Progress::ended && at == end ? reader.document()
                                                                               : Value();
}

Value MZJSONDocumentReader::readWhole(MZJSONTextSource& source) {
    MZJSONDocumentReader reader(0);
    auto progress = Progress::wantsMore;
    for (;;) {
        const char* at = source.text().data();
        const char* const end = at + source.text().size();
        if (progress == Progress::wantsMore) {
            progress = reader.read(at, end);
        }
        if (progress == Progress::ended) {
            at = skipWhiteSpace(at, end);
            progress = at == end ? Progress::ended : Progress::unsure;
        }
        if (progress == Progress::unsure) {
            return {};
        }
        if (!source.readMore(static_cast<std::size_t>(end - at))) {
            break;
        }
    }
    return progress == Progress::ended && source.isComplete() ? reader.document() : Value();
}

MZJSONDocumentReader::Progress MZJSONDocumentReader::read(const char*& position, const char* end) {
    const char* at = position;
    Container container = container_;
    bool isAfterValue = isAfterValue_;
    const auto leave = [&](Progress progress) {
        container_ = container;
        isAfterValue_ = isAfterValue;
        position = at;
        return progress;
    };
    if (containers_.empty()) {
        at = skipWhiteSpace(at, end);
        if (*at != '[' && *at != '{') {
            return leave(at == end ? Progress::wantsMore : Progress::unsure);
        }
    }
    for (;;) {
        if (!isAfterValue) {
            at = skipWhiteSpace(at, end);
            const char* next = nullptr;
            switch (*at) {
                case '[':
                case '{':
                    containers_.push_back(container);
                    container = {builder_.size(), *at == '{', *at == '{'};
                    ++at;
                    continue;
                case ']':
                case '}':
                    // Right after the bracket that opens.
                    if (container.isDictionary != (*at == '}') ||
                        builder_.size() != container.first) {
                        return leave(Progress::unsure);
                    }
                    isAfterValue = true;
                    container.isKey = false;
                    continue;
                case '"':
                    next = readText(at, end);
                    break;
                case 't':
                    next = readLiteral(at, end, "true");
                    if (next != nullptr) {
                        builder_.push(true);
                    }
                    break;
                case 'f':
                    next = readLiteral(at, end, "false");
                    if (next != nullptr) {
                        builder_.push(false);
                    }
                    break;
                case 'n':
                    next = readLiteral(at, end, "null");
                    if (next != nullptr) {
                        builder_.pushNull();
                    }
                    break;
                default:
                    next = readNumber(at, end);
                    break;
            }
            if (next == nullptr) {
                return leave(std::exchange(failure_, Progress::unsure));
            }
            at = next;
            isAfterValue = true;
        }
        at = skipWhiteSpace(at, end);
        if (container.isKey) {
            if (*at != ':') {
                return leave(at == end ? Progress::wantsMore : Progress::unsure);
            }
            container.isKey = false;
            isAfterValue = false;
            ++at;
            continue;
        }
        if (*at == ',') {
            container.isKey = container.isDictionary;
            isAfterValue = false;
            ++at;
            continue;
        }
        if (at == end || *at != (container.isDictionary ? '}' : ']')) {
            return leave(at == end ? Progress::wantsMore : Progress::unsure);
        }
        if (container.isDictionary) {
            builder_.closeDictionary(container.first);
        } else {
            builder_.closeArray(container.first);
        }
        ++at;
        container = containers_.back();
        containers_.pop_back();
        if (containers_.empty()) {
            return leave(Progress::ended);
        }
        if (at == end) {
            return leave(Progress::wantsMore);
        }
    }
}

/// For a token that the end cuts off, perhaps.
const char* MZJSONDocumentReader::cutOff() noexcept {
    failure_ = Progress::wantsMore;
    return nullptr;
}

const char* MZJSONDocumentReader::readLiteral(const char* at,
                                              const char* end,
                                              std::string_view literal) noexcept {
    if (static_cast<std::size_t>(end - at) < literal.size()) {
        return cutOff();
    }
    return std::string_view(at, literal.size()) == literal ? at + literal.size() : nullptr;
}

const char* MZJSONDocumentReader::readText(const char* at, const char* end) {
    const char* const begin = at + 1;
    bool isPlain = true;
    at = findSpecial(begin, end, isPlain);
    while (at != end && *at != '"') {
        if (*at == '\\') {
            return readEscapedText(begin, at, end);
        }
        if (*at == '\t' || *at == '\n' || *at == '\r') {
            return nullptr;
        }
        at = findSpecial(at + 1, end, isPlain);
    }
    if (at == end) {
        return cutOff();
    }
    const auto length = static_cast<std::size_t>(at - begin);
    if (!isPlain && !velto::isValidUTF8({begin, length})) {
        return nullptr;
    }
    // Before the quotation mark stands a bracket, or what the source has there.
    if (length <= Builder::shortText && end - begin >= std::ptrdiff_t{Builder::shortText}) {
        builder_.pushShortText(begin, length);
    } else {
        builder_.pushText(begin, length);
    }
    return at + 1;
}

/// `at` is at the first backslash.
const char* MZJSONDocumentReader::readEscapedText(const char* begin,
                                                  const char* at,
                                                  const char* end) {
    // Where the text ends, for it never gets longer by what escapes stand for.
    bool isPlain = true;
    const char* last = begin;
    for (;;) {
        last = findSpecial(last, end, isPlain);
        if (last == end) {
            return cutOff();
        }
        if (*last == '\t' || *last == '\n' || *last == '\r') {
            return nullptr;
        }
        if (*last == '"') {
            break;
        }
        last += *last == '\\' ? 2 : 1;
        if (last >= end) {
            return cutOff();
        }
    }
    if (!isPlain && !velto::isValidUTF8({begin, static_cast<std::size_t>(last - begin)})) {
        return nullptr;
    }
    char* const text = builder_.beginText(static_cast<std::size_t>(last - begin));
    char* out = text;
    for (const char* from = begin;;) {
        const auto run = static_cast<std::size_t>(at - from);
        std::memcpy(out, from, run);
        out += run;
        if (at == last) {
            break;
        }
        const char escaped = at[1];
        at += 2;
        switch (escaped) {
            case 'n':
                *out++ = '\n';
                break;
            case 'r':
                *out++ = '\r';
                break;
            case 't':
                *out++ = '\t';
                break;
            case 'b':
                *out++ = '\b';
                break;
            case 'f':
                *out++ = '\f';
                break;
            case '"':
            case '/':
            case '\\':
                *out++ = escaped;
                break;
            case 'u': {
                const int unit = last - at >= 4 ? hexadecimal(at) : -1;
                if (unit < 0) {
                    return nullptr;
                }
                at += 4;
                auto character = static_cast<unsigned>(unit);
                if (unit >= 0xD800 && unit < 0xDC00 && last - at >= 6 && at[0] == '\\' &&
                    at[1] == 'u') {
                    const int second = hexadecimal(at + 2);
                    if (second >= 0xDC00 && second < 0xE000) {
                        character = 0x10000U + ((character & 0x3FF) << 10) +
                                    (static_cast<unsigned>(second) & 0x3FF);
                        at += 6;
                    }
                }
                out = velto::writeUTF8(out, character);
                break;
            }
            default:
                return nullptr;
        }
        from = at;
        at = findSpecial(at, last, isPlain);
        while (at != last && *at != '\\') {  // Some control character.
            at = findSpecial(at + 1, last, isPlain);
        }
    }
    builder_.pushBegunText(static_cast<std::size_t>(out - text));
    return at + 1;
}

const char* MZJSONDocumentReader::readNumber(const char* at, const char* end) {
    const char* const begin = at;
    const bool negative = *at == '-';
    at += negative ? 1 : 0;
    const char* const digits = at;
    std::uint64_t mantissa = 0;
    at = readDigits(at, end, mantissa);
    const auto whole = at - digits;
    if (at == end) {
        return cutOff();
    }
    if (!continuesNumber(*at)) {
        // Up to 18 digits fit an integer, whose conversion rounds as that of the text.
        if (whole > 0 && whole <= 18 && (negative || whole == 1 || *digits != '0')) {
            const auto value = static_cast<double>(static_cast<std::int64_t>(mantissa));
            builder_.push(negative ? -value : value);
            return at;
        }
    } else if (*at == '.') {
        const char* const fraction = ++at;
        at = readDigits(at, end, mantissa);
        const auto places = at - fraction;
        if (at == end) {
            return cutOff();
        }
        if (!continuesNumber(*at) && whole + places > 0 && whole + places <= longestFraction) {
            const double value = quotient(mantissa, static_cast<std::size_t>(places));
            if (!std::isnan(value)) [[likely]] {
                builder_.push(negative ? -value : value);
                return at;
            }
        }
    }
    return readOtherNumber(begin, at, end);
}

/// `begin` to `at` are what is known to belong to its run.
const char* MZJSONDocumentReader::readOtherNumber(const char* begin,
                                                  const char* at,
                                                  const char* end) {
    if (!isDigit(*begin) && *begin != '-' && *begin != '.') {
        return nullptr;
    }
    while (isDigit(*at) || continuesNumber(*at)) {
        ++at;
    }
    if (at == end) {
        return cutOff();
    }
    const MZJSONNumber number(std::string_view(begin, static_cast<std::size_t>(at - begin)));
    if (number.status != MZJSONNumber::Status::valid) {
        return nullptr;
    }
    builder_.push(number.value);
    return at;
}
