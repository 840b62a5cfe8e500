#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace velto {

/// Identifier of the user's locale for numbers ("de_DE"): the first of LC_ALL, LC_NUMERIC and LANG
/// that is set, "en_US_POSIX" for none, "C" and "POSIX". Read once; the C locale is not touched.
VELTO_EXPORT const std::string& userLocale();

/// Decimal separator of a locale; "." for one that nobody knows.
VELTO_EXPORT std::string decimalSeparatorForLocale(std::string_view identifier);

/// The one of the user's locale. Read once.
VELTO_EXPORT const std::string& userDecimalSeparator();

/// In the digits of a locale, without grouping.
VELTO_EXPORT std::string integerTextForLocale(std::int64_t number, std::string_view identifier);

/// The same in the user's locale, which is read once.
VELTO_EXPORT std::string localizedInteger(std::int64_t number);

}  // namespace velto
