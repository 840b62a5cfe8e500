#include <VeltoConnectFoundation/Codecs/MZJSONDocumentReader.h>

#include <VeltoConnectFoundation/Codecs/MZJSONNumber.h>
#include <VeltoConnectFoundation/Platform/TextEncoding.h>

#include <array>
#include <bit>
#include <cmath>
#include <experimental/simd>
#include <iterator>
#include <limits>
#include <vector>

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

bool isControl(char character) noexcept {
    return static_cast<unsigned char>(character) < 0x20;
}

/// The first quotation mark, backslash or control character from `at` on, or `end`. `isPlain`
/// becomes false when a character beyond ASCII stands before it.
const char* findSpecial(const char* at, const char* end, bool& isPlain) noexcept {
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

char* appendCharacter(char* out, unsigned character) noexcept {
    const auto tail = [&](unsigned shift) {
        return static_cast<char>(0x80 | ((character >> shift) & 0x3F));
    };
    if (character < 0x80) {
        *out++ = static_cast<char>(character);
    } else if (character < 0x800) {
        *out++ = static_cast<char>(0xC0 | character >> 6);
        *out++ = tail(0);
    } else if (character < 0x10000) {
        *out++ = static_cast<char>(0xE0 | character >> 12);
        *out++ = tail(6);
        *out++ = tail(0);
    } else {
        *out++ = static_cast<char>(0xF0 | character >> 18);
        *out++ = tail(12);
        *out++ = tail(6);
        *out++ = tail(0);
    }
    return out;
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

/// Appends the digits from `at` on to `mantissa`, modulo 2^64. Ends at the first other character,
/// which there is before `end`.
const char* readDigits(const char* at, const char* end, std::uint64_t& mantissa) noexcept {
    if constexpr (std::endian::native == std::endian::little) {
        while (end - at >= 8) {
            std::uint64_t bytes;
            std::memcpy(&bytes, at, sizeof bytes);
            // Each byte is a digit: its high half 3, also after adding 6.
            if (((bytes & 0xF0F0F0F0F0F0F0F0) |
                 (((bytes + 0x0606060606060606) & 0xF0F0F0F0F0F0F0F0) >> 4)) !=
                0x3333333333333333) {
                break;
            }
            // Pairs of digits, then of pairs, then of fours.
            bytes -= 0x3030303030303030;
            bytes = bytes * 10 + (bytes >> 8);
            bytes = ((bytes & 0x000000FF000000FF) * 0x000F424000000064 +
                     ((bytes >> 16) & 0x000000FF000000FF) * 0x0000271000000001) >>
                    32;
            mantissa = mantissa * 100'000'000 + bytes;
            at += 8;
        }
    }
    for (; isDigit(*at); ++at) {
        mantissa = mantissa * 10 + static_cast<std::uint64_t>(*at - '0');
    }
    return at;
}

}  // namespace

/// A container that is open.
struct MZJSONDocumentReader::Container {
    std::size_t first;  ///< Where its values begin on the builder's stack.
    bool isDictionary;
};

MZJSONDocumentReader::MZJSONDocumentReader(std::string_view text)
    : at_(text.data()), end_(text.data() + text.size()), builder_(text.size()) {
}

Value MZJSONDocumentReader::read() {
    while (end_ != at_ && isWhiteSpace(end_[-1])) {
        --end_;
    }
    // With a bracket at the end, no number, literal or white space needs a look at the end.
    if (end_ == at_ || (end_[-1] != ']' && end_[-1] != '}')) {
        return {};
    }
    skipWhiteSpace();
    return readContainers() ? builder_.finish() : Value();
}

void MZJSONDocumentReader::skipWhiteSpace() noexcept {
    if (!isWhiteSpace(*at_)) [[likely]] {
        return;
    }
    // Most often a single blank, or a line break before an indentation.
    ++at_;
    while (isWhiteSpace(*at_)) {
        if (end_ - at_ >= static_cast<std::ptrdiff_t>(Block::size())) {
            const Block block(reinterpret_cast<const unsigned char*>(at_), simd::element_aligned);
            const auto other = !((block == static_cast<unsigned char>(' ')) ||
                                 (block == static_cast<unsigned char>('\n')) ||
                                 (block == static_cast<unsigned char>('\r')) ||
                                 (block == static_cast<unsigned char>('\t')));
            if (simd::any_of(other)) {
                at_ += simd::find_first_set(other);
                return;
            }
            at_ += Block::size();
        } else {
            ++at_;
        }
    }
}

bool MZJSONDocumentReader::readContainers() {
    std::vector<Container> containers;
    if (*at_ != '[' && *at_ != '{') {
        return false;
    }
    for (;;) {
        switch (*at_) {
            case '[':
            case '{': {
                const bool isDictionary = *at_ == '{';
                containers.push_back({builder_.size(), isDictionary});
                ++at_;
                skipWhiteSpace();
                if (*at_ != (isDictionary ? '}' : ']')) {
                    continue;
                }
                break;
            }
            case '"':
                if (!readText()) {
                    return false;
                }
                skipWhiteSpace();
                break;
            case 't':
                if (!readLiteral("true")) {
                    return false;
                }
                builder_.push(true);
                break;
            case 'f':
                if (!readLiteral("false")) {
                    return false;
                }
                builder_.push(false);
                break;
            case 'n':
                if (!readLiteral("null")) {
                    return false;
                }
                builder_.pushNull();
                break;
            default:
                if (!readNumber()) {
                    return false;
                }
                skipWhiteSpace();
                break;
        }
        // After a value: close what ends here, then go on to the next one.
        for (;;) {
            const Container container = containers.back();
            const char next = *at_;
            if (next == (container.isDictionary ? '}' : ']')) {
                if (container.isDictionary) {
                    if ((builder_.size() - container.first) % 2 != 0) {
                        return false;
                    }
                    builder_.closeDictionary(container.first);
                } else {
                    builder_.closeArray(container.first);
                }
                containers.pop_back();
                ++at_;
                if (containers.empty()) {
                    return at_ == end_;
                }
                if (at_ == end_) {
                    return false;
                }
                skipWhiteSpace();
                continue;
            }
            const bool afterKey =
                container.isDictionary && (builder_.size() - container.first) % 2 != 0;
            if (next != (afterKey ? ':' : ',')) {
                return false;
            }
            ++at_;
            skipWhiteSpace();
            break;
        }
    }
}

bool MZJSONDocumentReader::readLiteral(std::string_view literal) {
    if (static_cast<std::size_t>(end_ - at_) <= literal.size() ||
        std::string_view(at_, literal.size()) != literal) {
        return false;
    }
    at_ += literal.size();
    skipWhiteSpace();
    return true;
}

bool MZJSONDocumentReader::readText() {
    const char* begin = ++at_;
    bool isPlain = true;
    at_ = findSpecial(begin, end_, isPlain);
    while (at_ != end_ && *at_ != '"') {
        if (*at_ == '\\') {
            return readEscapedText(begin);
        }
        if (*at_ == '\t' || *at_ == '\n' || *at_ == '\r') {
            return false;
        }
        at_ = findSpecial(at_ + 1, end_, isPlain);
    }
    if (at_ == end_) {
        return false;
    }
    const auto length = static_cast<std::size_t>(at_ - begin);
    if (!isPlain && !velto::isValidUTF8({begin, length})) {
        return false;
    }
    if (length <= Builder::shortText && end_ - begin >= std::ptrdiff_t{Builder::shortText}) {
        builder_.pushShortText(begin, length);
    } else {
        builder_.pushText(begin, length);
    }
    ++at_;
    return true;
}

/// `at_` is at the first backslash.
bool MZJSONDocumentReader::readEscapedText(const char* begin) {
    // Where the text ends, for it never gets longer by what escapes stand for.
    bool isPlain = true;
    const char* last = begin;
    for (;;) {
        last = findSpecial(last, end_, isPlain);
        if (last == end_ || *last == '\t' || *last == '\n' || *last == '\r') {
            return false;
        }
        if (*last == '"') {
            break;
        }
        last += *last == '\\' ? 2 : 1;
        if (last >= end_) {
            return false;
        }
    }
    if (!isPlain && !velto::isValidUTF8({begin, static_cast<std::size_t>(last - begin)})) {
        return false;
    }
    char* const text = builder_.beginText(static_cast<std::size_t>(last - begin));
    char* out = text;
    for (const char* from = begin;;) {
        const auto run = static_cast<std::size_t>(at_ - from);
        std::memcpy(out, from, run);
        out += run;
        if (at_ == last) {
            break;
        }
        const char escaped = at_[1];
        at_ += 2;
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
                const int unit = last - at_ >= 4 ? hexadecimal(at_) : -1;
                if (unit < 0) {
                    return false;
                }
                at_ += 4;
                auto character = static_cast<unsigned>(unit);
                if (unit >= 0xD800 && unit < 0xDC00 && last - at_ >= 6 && at_[0] == '\\' &&
                    at_[1] == 'u') {
                    const int second = hexadecimal(at_ + 2);
                    if (second >= 0xDC00 && second < 0xE000) {
                        character = 0x10000U + ((character & 0x3FF) << 10) +
                                    (static_cast<unsigned>(second) & 0x3FF);
                        at_ += 6;
                    }
                }
                out = appendCharacter(out, character);
                break;
            }
            default:
                return false;
        }
        from = at_;
        at_ = findSpecial(at_, last, isPlain);
        while (at_ != last && *at_ != '\\') {  // Some control character.
            at_ = findSpecial(at_ + 1, last, isPlain);
        }
    }
    builder_.pushBegunText(static_cast<std::size_t>(out - text));
    ++at_;
    return true;
}

bool MZJSONDocumentReader::readNumber() {
    const char* const begin = at_;
    const bool negative = *at_ == '-';
    at_ += negative ? 1 : 0;
    const char* const digits = at_;
    std::uint64_t mantissa = 0;
    at_ = readDigits(at_, end_, mantissa);
    const auto whole = at_ - digits;
    if (!continuesNumber(*at_)) {
        // Up to 18 digits fit an integer, whose conversion rounds as that of the text.
        if (whole > 0 && whole <= 18 && (negative || whole == 1 || *digits != '0')) {
            const auto value = static_cast<double>(static_cast<std::int64_t>(mantissa));
            builder_.push(negative ? -value : value);
            return true;
        }
    } else if (*at_ == '.') {
        const char* const fraction = ++at_;
        at_ = readDigits(at_, end_, mantissa);
        const auto places = at_ - fraction;
        if (!continuesNumber(*at_) && whole + places > 0 && whole + places <= longestFraction) {
            const double value = quotient(mantissa, static_cast<std::size_t>(places));
            if (!std::isnan(value)) [[likely]] {
                builder_.push(negative ? -value : value);
                return true;
            }
        }
    }
    if (!isDigit(*begin) && *begin != '-' && *begin != '.') {
        return false;
    }
    while (isDigit(*at_) || continuesNumber(*at_)) {
        ++at_;
    }
    const MZJSONNumber number(std::string_view(begin, static_cast<std::size_t>(at_ - begin)));
    if (number.status != MZJSONNumber::Status::valid) {
        return false;
    }
    builder_.push(number.value);
    return true;
}
