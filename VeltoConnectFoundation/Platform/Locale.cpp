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

}  // namespace

const std::string& userLocale() {
    static const std::string locale = readUserLocale();
    return locale;
}

std::string decimalSeparatorForLocale(std::string_view identifier) {
    UErrorCode status = U_ZERO_ERROR;
    UNumberFormat* const format =
        unum_open(UNUM_DECIMAL, nullptr, 0, std::string(identifier).c_str(), nullptr, &status);
    std::array<UChar, 16> symbol;
    const std::int32_t length = unum_getSymbol(format, UNUM_DECIMAL_SEPARATOR_SYMBOL, symbol.data(),
                                               static_cast<std::int32_t>(symbol.size()), &status);
    unum_close(format);
    if (U_FAILURE(status) || length <= 0) {
        return ".";
    }
    return utf8FromUTF16(std::u16string_view(symbol.data(), static_cast<std::size_t>(length)));
}

const std::string& userDecimalSeparator() {
    static const std::string separator = decimalSeparatorForLocale(userLocale());
    return separator;
}

}  // namespace velto
