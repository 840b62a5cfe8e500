#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace velto {

/// As "%0.16g" in the C locale; infinities are "inf" and "-inf", no number is "nan".
VELTO_EXPORT_INTERNAL std::string numberText(double number);

/// The fewest digits that read back as the same float, in plain form below ten million.
VELTO_EXPORT_INTERNAL std::string numberText(float number);

/// The number that a text begins with.
struct LeadingDouble {
    double value = 0;
    std::size_t length = 0;  ///< Bytes that belong to it; 0 when the text begins with no number.
};

/// Reads as strtod does in the C locale, but neither blanks, hexadecimal forms nor names: beyond
/// the range the value is infinite, below it a zero or a denormal.
VELTO_EXPORT_INTERNAL LeadingDouble leadingDouble(std::string_view text) noexcept;

std::string_view withoutLeadingBlanks(std::string_view text) noexcept;  ///< Those of ASCII.
/// The integer that a text begins with, after such blanks; 0 when there is none; saturates.
std::int64_t leadingSigned(std::string_view text) noexcept;
std::uint64_t leadingUnsigned(std::string_view text) noexcept;

}  // namespace velto
