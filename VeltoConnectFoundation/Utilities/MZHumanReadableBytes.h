#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <cstdint>
#include <string>

/// "1.5 kB", "1 byte": a number of at most two decimals, cut and never rounded up, without
/// trailing zeros, in the user's locale, and the translated name of its unit. Any thread.
VELTO_EXPORT std::string MZHumanReadableStringFromBytes(std::uint64_t count);

/// `divisor` is what a unit has of the next smaller one; by 0 or 1 the largest unit
/// is named and nothing divided: "5 EB" (0 by 1 is "0 bytes").
VELTO_EXPORT std::string MZHumanReadableStringFromBytesUsingDivisor(std::uint64_t count,
                                                                    std::uint64_t divisor);
