#include <VeltoConnectFoundation/Platform/DoubleText.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace velto {

namespace {

__extension__ using Wide = unsigned __int128;

constexpr int digitCount = 16;
constexpr std::uint64_t lowest = 1'000'000'000'000'000;  // The lowest number of 16 digits.
constexpr std::uint64_t beyond = 10 * lowest;
/// 5 to this power fits 64 bits.
constexpr int highestPower = 27;

constexpr std::array<std::uint64_t, highestPower + 1> powersOfFive = [] {
    std::array<std::uint64_t, highestPower + 1> powers{};
    std::uint64_t power = 1;
    for (std::uint64_t& place : powers) {
        place = power;
        power *= 5;
    }
    return powers;
}();

constexpr std::array<char, 200> digitPairs = [] {
    std::array<char, 200> pairs{};
    for (std::size_t i = 0; i < 100; ++i) {
        pairs[2 * i] = static_cast<char>('0' + i / 10);
        pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
    return pairs;
}();

void writePair(char* text, std::uint32_t pair) noexcept {
    std::memcpy(text, &digitPairs[std::size_t{2} * pair], 2);
}

void writeEightDigits(char* text, std::uint32_t number) noexcept {
    const std::uint32_t high = number / 10000;
    const std::uint32_t low = number % 10000;
    writePair(text, high / 100);
    writePair(text + 2, high % 100);
    writePair(text + 4, low / 100);
    writePair(text + 6, low % 100);
}

/// A number of 16 digits, and the power of ten of the first one.
struct Decimal {
    std::uint64_t digits;
    int exponent;
};

/// The nearest one, to the even one of two, of mantissa x 2^exponent2; exactly, since in this range
/// (about 1e-12 to 1e16) the product with a power of five fits 128 bits. No digits for a number
/// that is out of it.
Decimal nearestDecimal(std::uint64_t mantissa, int exponent2) noexcept {
    // At most one below the true power: floor((bits of the whole part - 1) x log10(2)).
    const int bits = exponent2 + static_cast<int>(std::bit_width(mantissa)) - 1;
    int exponent = bits * 1233 >> 12;
    for (;; ++exponent) {
        const int power = digitCount - 1 - exponent;
        if (power < 0 || power > highestPower) {
            return {0, 0};
        }
        const Wide product =
            static_cast<Wide>(mantissa) * powersOfFive[static_cast<std::size_t>(power)];
        const int shift = -(exponent2 + power);  // 5^p x 2^p is 10^p
        if (shift <= 0) {
            // A whole number of 54 bits at most.
            const auto digits = static_cast<std::uint64_t>(product << -shift);
            if (digits < beyond) {
                return {digits, exponent};
            }
            continue;
        }
        auto digits = static_cast<std::uint64_t>(product >> shift);
        if (digits >= beyond) {
            continue;
        }
        const Wide half = static_cast<Wide>(1) << (shift - 1);
        const Wide rest = product & (half + half - 1);
        if (rest > half || (rest == half && (digits & 1) != 0)) {
            ++digits;
        }
        return digits < beyond ? Decimal{digits, exponent} : Decimal{lowest, exponent + 1};
    }
}

char* writeDecimal(char* text, const Decimal& decimal) noexcept {
    char digits[digitCount];
    writeEightDigits(digits, static_cast<std::uint32_t>(decimal.digits / 100'000'000));
    writeEightDigits(digits + 8, static_cast<std::uint32_t>(decimal.digits % 100'000'000));
    std::size_t count = digitCount;
    while (digits[count - 1] == '0') {
        --count;
    }
    const int exponent = decimal.exponent;
    if (exponent < -4) {
        *text++ = digits[0];
        if (count > 1) {
            *text++ = '.';
            std::memcpy(text, digits + 1, count - 1);
            text += count - 1;
        }
        *text++ = 'e';
        *text++ = '-';
        writePair(text, static_cast<std::uint32_t>(-exponent));
        return text + 2;
    }
    if (exponent < 0) {
        text = std::copy_n("0.000", 1 - exponent, text);
        std::memcpy(text, digits, count);
        return text + count;
    }
    const std::size_t whole = static_cast<std::size_t>(exponent) + 1;
    std::memcpy(text, digits, whole);
    text += whole;
    if (count > whole) {
        *text++ = '.';
        std::memcpy(text, digits + whole, count - whole);
        text += count - whole;
    }
    return text;
}

}  // namespace

char* writeDouble(char* text, double number) noexcept {
    char* const end = text + DoubleTextSize;
    const auto bits = std::bit_cast<std::uint64_t>(number);
    const int biased = static_cast<int>(bits >> 52 & 0x7FF);
    const double size = std::fabs(number);
    if (size < 1e16 && biased != 0) {
        char* start = text;
        if (bits >> 63 != 0) {
            *start++ = '-';
        }
        const auto whole = static_cast<std::uint64_t>(size);
        if (static_cast<double>(whole) == size) {
            return std::to_chars(start, end, whole).ptr;
        }
        const std::uint64_t mantissa = (bits & 0xFFFFFFFFFFFFF) | std::uint64_t{1} << 52;
        const Decimal decimal = nearestDecimal(mantissa, biased - 1075);
        if (decimal.digits != 0) {
            return writeDecimal(start, decimal);
        }
    }
    return std::to_chars(text, end, number, std::chars_format::general, digitCount).ptr;
}

}  // namespace velto
