#include <VeltoConnectFoundation/Platform/DoubleText.h>
#include <VeltoConnectFoundation/Platform/NumberText.h>

#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>

namespace velto {

namespace {

bool isDigit(char character) noexcept {
    return character >= '0' && character <= '9';
}

bool isBlank(char character) noexcept {
    return character == ' ' || (character >= '\t' && character <= '\r');
}

/// A sign, then digits; saturates at the ends of the type.
template <class T>
T leadingWhole(std::string_view text) noexcept {
    text = withoutLeadingBlanks(text);
    const bool negative = !text.empty() && text.front() == '-';
    if (!text.empty() && (negative || text.front() == '+')) {
        text.remove_prefix(1);
    }
    std::uint64_t size = 0;
    for (; !text.empty() && isDigit(text.front()); text.remove_prefix(1)) {
        const auto digit = static_cast<std::uint64_t>(text.front() - '0');
        if (size > (std::numeric_limits<std::uint64_t>::max() - digit) / 10) {
            size = std::numeric_limits<std::uint64_t>::max();
            break;
        }
        size = size * 10 + digit;
    }
    constexpr auto highest = static_cast<std::uint64_t>(std::numeric_limits<T>::max());
    if (negative) {
        if constexpr (std::is_signed_v<T>) {
            return size > highest ? std::numeric_limits<T>::min() : -static_cast<T>(size);
        } else {
            return 0;
        }
    }
    return size > highest ? std::numeric_limits<T>::max() : static_cast<T>(size);
}

/// Whether a decimal beyond the range of doubles is beyond its upper end. `text` is a well-formed
/// number without sign, and not zero.
bool overflows(std::string_view text) noexcept {
    std::int64_t magnitude = 0;  // Of the first digit that is not zero, as a power of ten.
    bool started = false;
    bool fraction = false;
    std::size_t at = 0;
    for (; at < text.size() && (isDigit(text[at]) || text[at] == '.'); ++at) {
        if (text[at] == '.') {
            fraction = true;
            continue;
        }
        started = started || text[at] != '0';
        if (started && !fraction) {
            ++magnitude;
        } else if (!started && fraction) {
            --magnitude;
        }
    }
    std::int64_t exponent = 0;
    if (at < text.size()) {
        ++at;  // e or E
        const bool negative = at < text.size() && text[at] == '-';
        at += at < text.size() && !isDigit(text[at]) ? 1U : 0U;
        for (; at < text.size(); ++at) {
            exponent =
                exponent < (std::int64_t{1} << 50) ? exponent * 10 + (text[at] - '0') : exponent;
        }
        exponent = negative ? -exponent : exponent;
    }
    return magnitude + exponent > 0;
}

}  // namespace

std::string_view withoutLeadingBlanks(std::string_view text) noexcept {
    while (!text.empty() && isBlank(text.front())) {
        text.remove_prefix(1);
    }
    return text;
}

std::int64_t leadingSigned(std::string_view text) noexcept {
    return leadingWhole<std::int64_t>(text);
}

std::uint64_t leadingUnsigned(std::string_view text) noexcept {
    return leadingWhole<std::uint64_t>(text);
}

std::string numberText(double number) {
    if (std::isnan(number)) {
        return "nan";
    }
    char text[DoubleTextSize];
    return {text, writeDouble(text, number)};
}

std::string numberText(float number) {
    if (std::isnan(number)) {
        return "nan";
    }
    const float size = std::fabs(number);
    const bool plain = size == 0 || (size >= 1e-4F && size < 1e7F);
    char text[64];
    const auto result =
        std::to_chars(text, text + sizeof text, number,
                      plain ? std::chars_format::fixed : std::chars_format::scientific);
    return {text, result.ptr};
}

LeadingDouble leadingDouble(std::string_view text) noexcept {
    const std::size_t sign = !text.empty() && (text[0] == '-' || text[0] == '+') ? 1 : 0;
    const std::string_view number = text.substr(sign);
    if (number.empty() || (!isDigit(number[0]) && number[0] != '.')) {
        return {};
    }
    double value = 0;
    const auto result = std::from_chars(number.data(), number.data() + number.size(), value);
    if (result.ec == std::errc::invalid_argument) {
        return {};
    }
    const auto length = static_cast<std::size_t>(result.ptr - number.data());
    if (result.ec == std::errc::result_out_of_range) {
        value = overflows(number.substr(0, length)) ? std::numeric_limits<double>::infinity() : 0;
    }
    return {sign != 0 && text[0] == '-' ? -value : value, sign + length};
}

}  // namespace velto
