#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <span>
#include <string>
#include <vector>

namespace velto {

/// The arguments joined by spaces, fit for a log line: the values of the options that carry
/// secrets read "**hidden value**", unless they only name a variable ("@env:…"). An option's
/// value is the next argument, or what follows "=" or a space in its own.
VELTO_EXPORT std::string maskedArguments(std::span<const std::string> arguments);

/// The same, one by one.
VELTO_EXPORT std::vector<std::string> maskedArgumentList(std::span<const std::string> arguments);

}  // namespace velto
