#include <VeltoConnectFoundation/Platform/Digest.h>

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <array>
#include <utility>

namespace velto {

namespace {

/// Looked up once: a look-up costs more than the digest of a short text. None where the system
/// forbids the algorithm, which goes for our own MD5 too.
const EVP_MD* fetched(Digest::Algorithm algorithm) {
    startOpenSSL();
    static const std::array<const EVP_MD*, 3> algorithms = {
        EVP_MD_fetch(nullptr, "MD5", nullptr), EVP_MD_fetch(nullptr, "SHA1", nullptr),
        EVP_MD_fetch(nullptr, "SHA256", nullptr)};
    return algorithms[static_cast<std::size_t>(algorithm)];
}

EVP_MD_CTX* contextOf(void* context) {
    return static_cast<EVP_MD_CTX*>(context);
}

}  // namespace

void startOpenSSL() {
    static const int isStarted = OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
    static_cast<void>(isStarted);
}

void Digest::ContextDeleter::operator()(void* context) const noexcept {
    EVP_MD_CTX_free(contextOf(context));
}

Digest::Digest(Algorithm algorithm) {
    const EVP_MD* type = fetched(algorithm);
    if (type == nullptr) {
        return;
    }
    if (algorithm == Algorithm::md5) {
        context_.emplace<detail::MD5>();
        return;
    }
    Context context(EVP_MD_CTX_new());
    if (context && EVP_DigestInit_ex(contextOf(context.get()), type, nullptr) == 1) {
        context_ = std::move(context);
    }
}

Digest::~Digest() = default;

Digest::Digest(Digest&& other) noexcept
    : context_(std::exchange(other.context_, std::monostate())) {
}

Digest& Digest::operator=(Digest&& other) noexcept {
    context_ = std::exchange(other.context_, std::monostate());
    return *this;
}

bool Digest::update(const void* bytes, std::size_t length) {
    if (auto* md5 = std::get_if<detail::MD5>(&context_)) {
        md5->update(static_cast<const std::uint8_t*>(bytes), length);
    } else if (auto* context = std::get_if<Context>(&context_);
               context != nullptr &&
               EVP_DigestUpdate(contextOf(context->get()), bytes, length) != 1) {
        context_ = std::monostate();
    }
    return isValid();
}

std::optional<Data> Digest::finish() {
    auto used = std::exchange(context_, std::monostate());
    if (auto* md5 = std::get_if<detail::MD5>(&used)) {
        const auto digest = md5->finish();
        return Data(digest.data(), digest.size());
    }
    std::array<unsigned char, EVP_MAX_MD_SIZE> bytes;
    unsigned length = 0;
    if (auto* context = std::get_if<Context>(&used);
        context != nullptr &&
        EVP_DigestFinal_ex(contextOf(context->get()), bytes.data(), &length) == 1) {
        return Data(bytes.data(), length);
    }
    return std::nullopt;
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
