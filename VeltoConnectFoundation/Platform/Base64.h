#pragma once

#include <VeltoConnectFoundation/Platform/Value.h>

#include <optional>
#include <string>
#include <string_view>

namespace velto {

enum class Base64Form : std::uint8_t {
    plain,    ///< One line, padded.
    lines64,  ///< Lines of 64 characters with CR LF between them, none at the end; padded.
    url,      ///< "-" and "_" for "+" and "/", no padding.
};

VELTO_EXPORT std::string encodeBase64(std::string_view bytes, Base64Form form = Base64Form::plain);

/// Strict: only the form's own alphabet and padding, nothing left over in the last digit; line
/// breaks (CR LF or LF, anywhere) in `lines64` only. none otherwise.
VELTO_EXPORT std::optional<Data> decodeBase64(std::string_view text,
                                              Base64Form form = Base64Form::plain);

}  // namespace velto
