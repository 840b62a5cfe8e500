#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <string>

namespace velto {

/// Overwrites a secret's bytes, room behind the text included, and empties it.
VELTO_EXPORT void wipe(std::string& secret) noexcept;

}  // namespace velto
