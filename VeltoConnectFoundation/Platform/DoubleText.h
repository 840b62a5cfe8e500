#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <cstddef>

namespace velto {

/// What writeDouble needs at most.
inline constexpr std::size_t DoubleTextSize = 32;

/// Writes a double as "%0.16g" does in the C locale; answers the end. Neither fails nor allocates.
VELTO_EXPORT_INTERNAL char* writeDouble(char* text, double number) noexcept;

}  // namespace velto
