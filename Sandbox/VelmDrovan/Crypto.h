#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct evp_md_ctx_st;

namespace sandbox {

class MD5 {
public:
    MD5();
    ~MD5();
    void update(const void* bytes, std::size_t count);
    std::string hex();  ///< 32 lower-case digits; ends the digest.

private:
    struct Free {
        void operator()(evp_md_ctx_st* context) const;
    };
    std::unique_ptr<evp_md_ctx_st, Free> context_;
};

/// Base64 in lines of 64 characters with CR LF between them and none at the end: no other form is
/// taken.
std::optional<std::string> decodeBase64Lines(std::string_view text);

/// The URL form, without padding.
std::optional<std::string> decodeBase64URL(std::string_view text);

/// ES256: `signature` is r and s, 32 bytes each. False also for a key that is not on P-256.
bool verifyES256(const std::string& publicKeyPEM,
                 std::string_view signedText,
                 std::string_view signature);

/// Whether a file holds an unencrypted P-256 private key; with a public key, its own.
bool privateKeyFits(const std::string& path, const std::string& publicKeyPEM);

}  // namespace sandbox
