#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace velto::testing {

/// A fresh key pair, and the second opinion on what was signed with it.
class KeyFile {
public:
    static KeyFile make(std::string_view kind);  ///< "P-256", "P-384" or "RSA".

    std::string pem() const;  ///< The private key.
    std::string encryptedPEM(std::string_view password) const;
    std::string publicPEM() const;
    /// Whether 64 bytes are an ECDSA signature with SHA-256.
    bool verifies(std::string_view text, std::string_view signature) const;

private:
    std::shared_ptr<void> key_;
};

}  // namespace velto::testing
