#pragma once

#include <VeltoConnectFoundation/Platform/Value.h>

#include <string_view>

/// Reads the text of the tool's published defaults: "key=value" lines, "#" at the start of a
/// comment; a later line of the same key wins. Values are trimmed; a line without a key is logged.
VELTO_EXPORT velto::Dictionary VeltoDrovanDefaultsFromText(std::string_view text);
