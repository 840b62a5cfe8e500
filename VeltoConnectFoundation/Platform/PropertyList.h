#pragma once

#include <VeltoConnectFoundation/Platform/Error.h>

#include <string>
#include <string_view>

namespace velto {

/// Codes: 1 what was read is no property list, 2 a value that has no form in one.
inline constexpr std::string_view PropertyListErrorDomain = "VeltoPropertyListErrorDomain";

/// Property lists, in their XML and their binary form.
///
/// Read strictly: at most 1 MiB and 128 levels, one root below "plist", keys that are strings, no
/// trailing bytes, valid text. Errors say where but hold nothing of the content.
class VELTO_EXPORT PropertyList {
public:
    /// Either form, told by its first bytes.
    [[nodiscard]] static std::optional<Value> parse(std::string_view bytes, Error* error = nullptr);

    /// Strings, numbers, dates, data, arrays, and dictionaries with strings as keys; null and other
    /// objects have no form. No document type stands in the XML, so that nothing refers outside.
    [[nodiscard]] static std::optional<std::string> xml(const Value& value, Error* error = nullptr);
    /// Also without unsigned numbers above 2^63 - 1, strings that hold a zero byte, and dates
    /// before 1932 or after 2069.
    [[nodiscard]] static std::optional<Data> binary(const Value& value, Error* error = nullptr);
};

}  // namespace velto
