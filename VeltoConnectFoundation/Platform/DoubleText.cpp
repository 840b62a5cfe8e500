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

/// Eight digits in memory order from the lowest byte up, each 0 to 9.
std::uint64_t eightDigits(std::uint32_t number) noexcept {
    // Halves of four digits, quarters of two, then single ones, each in a lane of its own.
    const std::uint64_t halves = number / 10000 | std::uint64_t{number % 10000} << 32;
    const std::uint64_t hundreds = (halves * 10486 >> 20) & 0x0000007F0000007F;
    const std::uint64_t quarters = hundreds | (halves - 100 * hundreds) << 16;
    const std::uint64_t tens = (quarters * 103 >> 10) & 0x000F000F000F000F;
    return tens | (quarters - 10 * tens) << 8;
}

/// As characters of text from the lowest byte up.
void store(char* text, std::uint64_t characters) noexcept {
    if constexpr (std::endian::native == std::endian::big) {
        characters = __builtin_bswap64(characters);
    }
    std::memcpy(text, &characters, sizeof characters);
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
    constexpr std::uint64_t zeros = 0x3030303030303030;
    const std::uint64_t high =
        eightDigits(static_cast<std::uint32_t>(decimal.digits / 100'000'000));
    const std::uint64_t low = eightDigits(static_cast<std::uint32_t>(decimal.digits % 100'000'000));
    const auto count = static_cast<std::size_t>(low != 0 ? 16 - std::countl_zero(low) / 8
                                                         : 8 - std::countl_zero(high) / 8);
    const int exponent = decimal.exponent;
    const bool isFraction = exponent < 0 && exponent >= -4;
    std::memcpy(text, "0.000", 5);
    // Where those after the point belong; those before it are moved down.
    char* const digits = text + (isFraction ? 1 - exponent : 1);
    store(digits, high | zeros);
    store(digits + 8, low | zeros);
    if (isFraction) {
        return digits + count;
    }
    const std::size_t whole = exponent < 0 ? 1 : static_cast<std::size_t>(exponent) + 1;
    if (whole < 8) {
        const std::size_t point = 8 * whole;
        const std::uint64_t before = (std::uint64_t{1} << point) - 1;
        const std::uint64_t after = ~std::uint64_t{0xFF} << point;
        store(text, ((high | zeros) & before) | std::uint64_t{'.'} << point |
                        ((high | zeros) << 8 & after));
    } else {
        std::memmove(text, digits, whole);
        text[whole] = '.';
    }
    char* end = count > whole ? digits + count : text + whole;
    if (exponent < 0) {
        *end++ = 'e';
        *end++ = '-';
        *end++ = static_cast<char>('0' + -exponent / 10);
        *end++ = static_cast<char>('0' + -exponent % 10);
    }
    return end;
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
