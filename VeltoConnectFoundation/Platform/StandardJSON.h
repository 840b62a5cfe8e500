#pragma once

#include <VeltoConnectFoundation/Platform/Error.h>

#include <string_view>

namespace velto {

/// Code 1: what was read is no JSON.
inline constexpr std::string_view StandardJSONErrorDomain = "VeltoStandardJSONErrorDomain";

/// The one value that a UTF-8 text of standard JSON holds, of at most 512 levels; integers stay
/// integers, a repeated key takes its last value. The error says where but nothing of the text.
[[nodiscard]] VELTO_EXPORT std::optional<Value> parseJSON(std::string_view text,
                                                          Error* error = nullptr);

}  // namespace velto
