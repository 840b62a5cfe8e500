#include <VelmDrovan/Crypto.h>

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <algorithm>
#include <cstdio>
#include <new>

namespace sandbox {
namespace {

template <auto function>
struct Freed {
    template <typename T>
    void operator()(T* pointer) const {
        function(pointer);
    }
};
using Bio = std::unique_ptr<BIO, Freed<BIO_free_all>>;
using Key = std::unique_ptr<EVP_PKEY, Freed<EVP_PKEY_free>>;
using Signature = std::unique_ptr<ECDSA_SIG, Freed<ECDSA_SIG_free>>;
using Context = std::unique_ptr<EVP_MD_CTX, Freed<EVP_MD_CTX_free>>;

const unsigned char* octets(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

bool isP256(EVP_PKEY* key) {
    char group[32] = {};
    return key && EVP_PKEY_is_a(key, "EC") &&
           EVP_PKEY_get_group_name(key, group, sizeof group, nullptr) == 1 &&
           std::string_view(group) == "prime256v1";
}

Key readPublicKey(const std::string& pem) {
    const Bio bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    return Key(PEM_read_bio_PUBKEY(bio.get(), nullptr, nullptr, nullptr));
}

/// Base64 characters and padding only; a multiple of four.
std::optional<std::string> decodeBase64(const std::string& text) {
    if (text.size() % 4 != 0)
        return std::nullopt;
    const std::size_t body = std::min(text.find('='), text.size());
    const std::size_t padding = text.size() - body;
    const auto isDigit = [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
               c == '+' || c == '/';
    };
    if (padding > 2 || text.find_first_not_of('=', body) != std::string::npos ||
        !std::all_of(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(body), isDigit))
        return std::nullopt;
    std::string bytes(text.size() / 4 * 3, '\0');
    const int count = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()), octets(text),
                                      static_cast<int>(text.size()));
    if (count < 0)
        return std::nullopt;
    bytes.resize(static_cast<std::size_t>(count) - padding);
    return bytes;
}

}  // namespace

void MD5::Free::operator()(evp_md_ctx_st* context) const {
    EVP_MD_CTX_free(context);
}

MD5::MD5() : context_(EVP_MD_CTX_new()) {
    if (!context_ || EVP_DigestInit_ex(context_.get(), EVP_md5(), nullptr) != 1)
        throw std::bad_alloc();
}

MD5::~MD5() = default;

void MD5::update(const void* bytes, std::size_t count) {
    EVP_DigestUpdate(context_.get(), bytes, count);
}

std::string MD5::hex() {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int count = 0;
    EVP_DigestFinal_ex(context_.get(), digest, &count);
    std::string text;
    for (unsigned int i = 0; i < count; ++i) {
        text += "0123456789abcdef"[digest[i] >> 4];
        text += "0123456789abcdef"[digest[i] & 15];
    }
    return text;
}

std::optional<std::string> decodeBase64Lines(std::string_view text) {
    constexpr std::size_t width = 64;
    std::string joined;
    while (text.size() > width) {
        if (text.substr(width, 2) != "\r\n" || text.size() == width + 2)
            return std::nullopt;
        joined.append(text.substr(0, width));
        text.remove_prefix(width + 2);
    }
    joined.append(text);
    return decodeBase64(joined);
}

std::optional<std::string> decodeBase64URL(std::string_view text) {
    if (text.find_first_of("+/=") != std::string_view::npos)
        return std::nullopt;
    std::string plain(text);
    std::replace(plain.begin(), plain.end(), '-', '+');
    std::replace(plain.begin(), plain.end(), '_', '/');
    plain.append((4 - plain.size() % 4) % 4, '=');
    return decodeBase64(plain);
}

bool verifyES256(const std::string& publicKeyPEM,
                 std::string_view signedText,
                 std::string_view signature) {
    ERR_clear_error();
    const Key key = readPublicKey(publicKeyPEM);
    bool valid = false;
    if (isP256(key.get()) && signature.size() == 64) {
        const Signature pair(ECDSA_SIG_new());
        ECDSA_SIG_set0(pair.get(), BN_bin2bn(octets(signature), 32, nullptr),
                       BN_bin2bn(octets(signature) + 32, 32, nullptr));
        unsigned char* der = nullptr;
        const int size = i2d_ECDSA_SIG(pair.get(), &der);
        const Context context(EVP_MD_CTX_new());
        valid =
            size > 0 &&
            EVP_DigestVerifyInit(context.get(), nullptr, EVP_sha256(), nullptr, key.get()) == 1 &&
            EVP_DigestVerify(context.get(), der, static_cast<std::size_t>(size), octets(signedText),
                             signedText.size()) == 1;
        OPENSSL_free(der);
    }
    ERR_clear_error();
    return valid;
}

bool privateKeyFits(const std::string& path, const std::string& publicKeyPEM) {
    ERR_clear_error();
    bool fits = false;
    if (const Bio bio{BIO_new_file(path.c_str(), "r")}) {
        // Without a callback an encrypted file would ask on the terminal.
        const auto refuse = [](char*, int, int, void*) { return -1; };
        const Key key(PEM_read_bio_PrivateKey(bio.get(), nullptr, refuse, nullptr));
        fits = isP256(key.get());
        if (fits && !publicKeyPEM.empty()) {
            const Key registered = readPublicKey(publicKeyPEM);
            fits = registered && EVP_PKEY_eq(key.get(), registered.get()) == 1;
        }
    }
    ERR_clear_error();
    return fits;
}

}  // namespace sandbox
