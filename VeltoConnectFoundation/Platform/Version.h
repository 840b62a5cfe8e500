#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <string_view>

namespace velto {

/// The library's version, "MAJOR.MINOR.PATCH".
VELTO_EXPORT std::string_view libraryVersion() noexcept;

}  // namespace velto
