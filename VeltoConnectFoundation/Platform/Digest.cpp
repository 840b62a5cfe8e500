#include <VeltoConnectFoundation/Platform/Digest.h>

#include <openssl/evp.h>

#include <array>

namespace velto {

namespace {

/// Looked up once: a look-up costs more than the digest of a short text.
const EVP_MD* fetched(Digest::Algorithm algorithm) {
    static const std::array<const EVP_MD*, 3> algorithms = {
        EVP_MD_fetch(nullptr, "MD5", nullptr), EVP_MD_fetch(nullptr, "SHA1", nullptr),
        EVP_MD_fetch(nullptr, "SHA256", nullptr)};
    return algorithms[static_cast<std::size_t>(algorithm)];
}

EVP_MD_CTX* contextOf(void* context) {
    return static_cast<EVP_MD_CTX*>(context);
}

}  // namespace

void Digest::ContextDeleter::operator()(void* context) const noexcept {
    EVP_MD_CTX_free(contextOf(context));
}

Digest::Digest(Algorithm algorithm) {
    const EVP_MD* type = fetched(algorithm);
    if (type == nullptr) {
        return;
    }
    context_.reset(EVP_MD_CTX_new());
    if (isValid() && EVP_DigestInit_ex(contextOf(context_.get()), type, nullptr) != 1) {
        context_.reset();
    }
}

Digest::~Digest() = default;
Digest::Digest(Digest&&) noexcept = default;
Digest& Digest::operator=(Digest&&) noexcept = default;

bool Digest::update(const void* bytes, std::size_t length) {
    if (isValid() && EVP_DigestUpdate(contextOf(context_.get()), bytes, length) != 1) {
        context_.reset();
    }
    return isValid();
}

std::optional<Data> Digest::finish() {
    std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
    unsigned length = 0;
    const bool done =
        isValid() && EVP_DigestFinal_ex(contextOf(context_.get()), bytes.data(), &length) == 1;
    context_.reset();
    return done ? std::optional(Data(bytes.data(), length)) : std::nullopt;
}

std::optional<Data> Digest::of(Algorithm algorithm, std::string_view bytes) {
    Digest digest(algorithm);
    digest.update(bytes);
    return digest.finish();
}

std::string hexadecimal(std::string_view bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const char c : bytes) {
        const auto byte = static_cast<std::uint8_t>(c);
        text += digits[byte >> 4];
        text += digits[byte & 0x0f];
    }
    return text;
}

}  // namespace velto
