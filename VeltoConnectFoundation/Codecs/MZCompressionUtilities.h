#pragma once

#include <VeltoConnectFoundation/Platform/Error.h>

#include <optional>
#include <string_view>

/// Required: the spelling. Codes are zlib's.
inline constexpr std::string_view MZCompressionUtilitiesErrorDomain =
    "MZCompressionUtiltitiesErrorDomain";

/// The setting of the most bytes that inflating may give.
inline constexpr std::string_view MZInflatedSizeLimit = "MZInflatedSizeLimit";

/// Gzips blocks of bytes and back. Any thread.
class VELTO_EXPORT MZCompressionUtilities {
public:
    static const MZCompressionUtilities& defaultUtilities();

    [[nodiscard]] std::optional<velto::Data> gzipDeflate(const velto::Data& data,
                                                         velto::Error* error = nullptr) const;
    /// Of a gzip or a zlib block; what follows the first one is ignored. Bytes that are neither,
    /// a block that is cut short, and one that holds more than the setting MZInflatedSizeLimit
    /// allows (as if memory were short) are errors.
    [[nodiscard]] std::optional<velto::Data> gzipInflate(const velto::Data& data,
                                                         velto::Error* error = nullptr) const;
};
