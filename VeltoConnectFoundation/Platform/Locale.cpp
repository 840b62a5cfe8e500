#include <VeltoConnectFoundation/Platform/Locale.h>

#include <VeltoConnectFoundation/Platform/TextEncoding.h>

#include <unicode/unum.h>

#include <array>
#include <cstdlib>

namespace velto {

namespace {

constexpr std::string_view neutralLocale = "en_US_POSIX";

std::string readUserLocale() {
    for (const char* variable : {"LC_ALL", "LC_NUMERIC", "LANG"}) {
        const char* const value = std::getenv(variable);
        if (value == nullptr || *value == '\0') {
            continue;
        }
        // "de_DE.UTF-8@euro": neither charset nor modifier says anything about numbers.
        const std::string_view name = value;
        const std::string_view identifier = name.substr(0, name.find_first_of(".@"));
        return std::string(identifier == "C" || identifier == "POSIX" ? neutralLocale : identifier);
    }
    return std::string(neutralLocale);
}

/// Empty when it cannot be told.
std::string symbolOfLocale(std::string_view identifier, UNumberFormatSymbol symbol) {
    UErrorCode status = U_ZERO_ERROR;
    UNumberFormat* const format =
        unum_open(UNUM_DECIMAL, nullptr, 0, std::string(identifier).c_str(), nullptr, &status);
    std::array<UChar, 16> units;
    const std::int32_t length = unum_getSymbol(format, symbol, units.data(),
                                               static_cast<std::int32_t>(units.size()), &status);
    unum_close(format);
    if (U_FAILURE(status) || length <= 0) {
        return {};
    }
    return utf8FromUTF16(std::u16string_view(units.data(), static_cast<std::size_t>(length)));
}

std::string integerText(std::int64_t number, std::string_view zero) {
    std::string text = std::to_string(number);
    const std::u16string zeroUnits = utf16FromUTF8(zero);
    if (zeroUnits.size() != 1 || zeroUnits[0] == u'0') {
        return text;
    }
    std::u16string units;
    for (const char character : text) {
        units += character == '-' ? u'-' : static_cast<char16_t>(zeroUnits[0] + (character - '0'));
    }
    return utf8FromUTF16(units);
}

}  // namespace

const std::string& userLocale() {
    static const auto* const locale = new std::string(readUserLocale());
    return *locale;
}

std::string decimalSeparatorForLocale(std::string_view identifier) {
    const std::string separator = symbolOfLocale(identifier, UNUM_DECIMAL_SEPARATOR_SYMBOL);
    return separator.empty() ? "." : separator;
}

const std::string& userDecimalSeparator() {
    static const auto* const separator = new std::string(decimalSeparatorForLocale(userLocale()));
    return *separator;
}

std::string integerTextForLocale(std::int64_t number, std::string_view identifier) {
    return integerText(number, symbolOfLocale(identifier, UNUM_ZERO_DIGIT_SYMBOL));
}

std::string localizedInteger(std::int64_t number) {
    static const auto* const zero =
        new std::string(symbolOfLocale(userLocale(), UNUM_ZERO_DIGIT_SYMBOL));
    return integerText(number, *zero);
}

}  // namespace velto
