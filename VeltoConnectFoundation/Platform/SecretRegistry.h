#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace velto {

/// What a sink shows in the place of a secret.
inline constexpr std::string_view hiddenValue = "**hidden value**";

/// Keeps a secret registered while it lives: no sink of this process shows it meanwhile. An empty
/// one is nothing. Any thread.
class VELTO_EXPORT RegisteredSecret {
public:
    RegisteredSecret() = default;
    explicit RegisteredSecret(std::string_view secret);
    RegisteredSecret(RegisteredSecret&& other) noexcept;
    RegisteredSecret& operator=(RegisteredSecret&& other) noexcept;
    ~RegisteredSecret();

private:
    std::size_t ticket_ = 0;  ///< 0 for none.
};

/// The text with each registered secret hidden, also where it is encoded: in base64, percent, \u,
/// XML, a shell's quotes, the other case (from six bytes on), or several of these; secrets of less
/// than four bytes only as they are. The text may hold any bytes: ask before it is decoded or cut.
/// Any thread.
VELTO_EXPORT std::string hidingSecrets(std::string text);

}  // namespace velto
