#pragma once

#include <VeltoConnectFoundation/Platform/Clock.h>
#include <VeltoConnectFoundation/Platform/Error.h>
#include <VeltoConnectFoundation/Platform/UserDefaults.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace velto {

inline constexpr std::string_view TokenSignerErrorDomain = "VeltoTokenSignerErrorDomain";

enum class TokenSignerErrorCode : std::uint8_t {
    badIdentifier = 1,  ///< The key's or the issuer's identifier cannot be one.
    missing = 2,        ///< No key file in any folder.
    unreadable = 3,
    encrypted = 4,
    noPrivateKey = 5,  ///< The file holds something else.
    wrongKind = 6,     ///< A key of another kind than P-256.
    signing = 7,
};

/// The folder in which private key files are looked for first.
VELTO_EXPORT extern const Setting VeltoPrivateKeysPath;

/// Signs JSON web tokens (ES256) with the private key file of an API key, "<key id>.p8": a PEM file
/// with an unencrypted P-256 key. It is looked for in VeltoPrivateKeysPath, then in "private-keys"
/// of the configuration folder. Any thread; errors name files but hold nothing of them.
class VELTO_EXPORT TokenSigner {
public:
    /// Null with an error when there is no usable key.
    static std::shared_ptr<TokenSigner> signerWithKeyID(std::string_view keyID,
                                                        std::string_view issuerID,
                                                        Error* error = nullptr);
    /// The key's file; none, with an error that names the folders, when there is none.
    static std::optional<std::string> keyFile(std::string_view keyID, Error* error = nullptr);
    ~TokenSigner();
    TokenSigner(const TokenSigner&) = delete;
    TokenSigner& operator=(const TokenSigner&) = delete;

    /// A token issued at `now` that is good for `lifetime`.
    [[nodiscard]] std::optional<std::string> token(Date now = Clock::wallTime(),
                                                   Error* error = nullptr) const;

    static constexpr Seconds lifetime{1200};
    static constexpr std::string_view audience = "velto-connect";

    class Key;

private:
    TokenSigner(std::unique_ptr<Key> key, std::string_view keyID, std::string_view issuerID);
    std::unique_ptr<Key> key_;
    std::string keyID_;
    std::string issuerID_;
};

}  // namespace velto
