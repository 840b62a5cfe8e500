#pragma once

#include <VeltoConnectFoundation/Platform/MD5.h>
#include <VeltoConnectFoundation/Platform/Value.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace velto {

/// A message digest, made piece by piece. One thread at a time.
class VELTO_EXPORT Digest {
public:
    enum class Algorithm : std::uint8_t { md5, sha1, sha256 };

    /// Not valid where the system forbids the algorithm.
    explicit Digest(Algorithm algorithm);
    ~Digest();
    Digest(Digest&&) noexcept;
    Digest& operator=(Digest&&) noexcept;

    bool isValid() const noexcept { return context_.index() != 0; }
    /// False, then and ever after, when the digest cannot go on.
    bool update(const void* bytes, std::size_t length);
    bool update(std::string_view bytes) { return update(bytes.data(), bytes.size()); }
    /// 16, 20 or 32 bytes; none after a failure. The digest is used up.
    std::optional<Data> finish();

    static std::optional<Data> of(Algorithm algorithm, std::string_view bytes);

private:
    struct ContextDeleter {
        void operator()(void* context) const noexcept;
    };
    using Context = std::unique_ptr<void, ContextDeleter>;

    std::variant<std::monostate, detail::MD5, Context> context_;  ///< Nothing when not valid.
};

/// Two lower-case digits a byte.
VELTO_EXPORT std::string hexadecimal(std::string_view bytes);

/// Comes before every other use of OpenSSL: it is not cleaned up when the program ends, which
/// threads that use it may outlive. A host that has used it before decides for itself.
void startOpenSSL();

}  // namespace velto
