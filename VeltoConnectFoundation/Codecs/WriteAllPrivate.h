#pragma once

#include <VeltoConnectFoundation/Platform/Stream.h>

#include <string_view>

/// Writes all bytes, however few the stream takes at once. Fails with the stream's own error, or
/// with one of `domain` when the stream takes nothing for long.
velto::Error writeAll(velto::OutputStream& stream,
                      const std::uint8_t* bytes,
                      std::size_t length,
                      std::string_view domain);
