#include <VeltoConnectFoundation/Platform/TokenSigner.h>

#include <VeltoConnectFoundation/Platform/Base64.h>
#include <VeltoConnectFoundation/Platform/Digest.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>

#include <openssl/crypto.h>
#include <openssl/ecdsa.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>
#include <vector>

namespace velto {

const Setting VeltoPrivateKeysPath(
    "VeltoPrivateKeysPath",
    SettingKind::string,
    {},
    "Folder in which the private key files of API keys are looked for first.");

namespace {

using Code = TokenSignerErrorCode;

constexpr std::size_t largestKeyFile = std::size_t{64} << 10;
constexpr std::size_t coordinateSize = 32;

Error signerError(Code code, std::string_view reason) {
    return Error::make(TokenSignerErrorDomain, static_cast<std::int64_t>(code),
                       localized("A token could not be signed."), reason);
}

template <auto release>
struct Releaser {
    template <class T>
    void operator()(T* object) const noexcept {
        release(object);
    }
};
using KeyHandle = std::unique_ptr<EVP_PKEY, Releaser<&EVP_PKEY_free>>;
using Bio = std::unique_ptr<BIO, Releaser<&BIO_free_all>>;
using DigestContext = std::unique_ptr<EVP_MD_CTX, Releaser<&EVP_MD_CTX_free>>;
using Signature = std::unique_ptr<ECDSA_SIG, Releaser<&ECDSA_SIG_free>>;

/// Bytes that are wiped when they go.
struct SecretBytes {
    std::vector<std::uint8_t> bytes;

    SecretBytes() = default;
    SecretBytes(const SecretBytes&) = delete;
    SecretBytes& operator=(const SecretBytes&) = delete;
    ~SecretBytes() { OPENSSL_cleanse(bytes.data(), bytes.size()); }
};

/// OpenSSL's errors are a queue of the thread: nothing of ours is left in it, nor read from it.
class CleanErrorQueue {
public:
    CleanErrorQueue() {
        startOpenSSL();
        ERR_clear_error();
    }
    ~CleanErrorQueue() { ERR_clear_error(); }
    CleanErrorQueue(const CleanErrorQueue&) = delete;
    CleanErrorQueue& operator=(const CleanErrorQueue&) = delete;
};

/// Without it OpenSSL would ask at the terminal.
int refusePassword(char*, int, int, void* wasAsked) {
    *static_cast<bool*>(wasAsked) = true;
    return -1;
}

/// What stands in a file name and in JSON as it is.
bool isIdentifier(std::string_view text) {
    const auto isAllowed = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '-' || c == '_' || c == '.' || c == '@' || c == '+' || c == ':';
    };
    return !text.empty() && text.size() <= 200 && text.front() != '.' &&
           std::ranges::all_of(text, isAllowed);
}

KeyHandle readKey(const std::string& path, Error* error) {
    SecretBytes file;
    Error reason;
    if (!FileManager::read(path, largestKeyFile, file.bytes, &reason)) {
        fail(error,
             signerError(Code::unreadable, localizedFormat("The key file could not be read: %@",
                                                           reason.localizedDescription())));
        return nullptr;
    }
    const Bio text(BIO_new_mem_buf(file.bytes.data(), static_cast<int>(file.bytes.size())));
    bool needsPassword = false;
    KeyHandle key(PEM_read_bio_PrivateKey(text.get(), nullptr, &refusePassword, &needsPassword));
    if (!key) {
        fail(error,
             needsPassword
                 ? signerError(Code::encrypted,
                               localizedFormat("The key file “%@” is encrypted.", path))
                 : signerError(Code::noPrivateKey,
                               localizedFormat("The file “%@” holds no private key.", path)));
        return nullptr;
    }
    std::array<char, 64> group{};
    if (EVP_PKEY_is_a(key.get(), "EC") != 1 ||
        EVP_PKEY_get_group_name(key.get(), group.data(), group.size(), nullptr) != 1 ||
        std::string_view(group.data()) != "prime256v1") {
        fail(error,
             signerError(Code::wrongKind,
                         localizedFormat("The key of the file “%@” is not a P-256 key.", path)));
        return nullptr;
    }
    return key;
}

/// Both numbers of an ECDSA signature, 32 bytes each; empty when it fails.
std::string sign(EVP_PKEY* key, std::string_view text) {
    const DigestContext context(EVP_MD_CTX_new());
    const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
    std::size_t length = 0;
    if (!context || EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, key) != 1 ||
        EVP_DigestSign(context.get(), nullptr, &length, bytes, text.size()) != 1) {
        return {};
    }
    std::vector<unsigned char> encoded(length);
    if (EVP_DigestSign(context.get(), encoded.data(), &length, bytes, text.size()) != 1) {
        return {};
    }
    const unsigned char* start = encoded.data();
    const Signature signature(d2i_ECDSA_SIG(nullptr, &start, static_cast<long>(length)));
    std::array<unsigned char, 2 * coordinateSize> numbers{};
    if (!signature ||
        BN_bn2binpad(ECDSA_SIG_get0_r(signature.get()), numbers.data(), coordinateSize) < 0 ||
        BN_bn2binpad(ECDSA_SIG_get0_s(signature.get()), numbers.data() + coordinateSize,
                     coordinateSize) < 0) {
        return {};
    }
    return {numbers.begin(), numbers.end()};
}

}  // namespace

class TokenSigner::Key {
public:
    KeyHandle handle;
};

std::optional<std::string> TokenSigner::keyFile(std::string_view keyID, Error* error) {
    std::vector<std::string> folders;
    if (const std::string folder = VeltoPrivateKeysPath.stringValue(); !folder.empty()) {
        folders.push_back(FileManager::expandingTilde(folder));
    }
    folders.push_back(FileManager::configurationFolder() + "/private-keys");
    std::string places;
    for (const std::string& folder : folders) {
        std::string path = folder + '/' + std::string(keyID) + ".p8";
        if (FileManager::linkAttributes(path)) {
            return path;
        }
        places += (places.empty() ? "“" : ", “") + folder + "”";
    }
    fail(error, signerError(Code::missing,
                            localizedFormat("There is no file “%@.p8” in %@.", keyID, places)));
    return std::nullopt;
}

std::shared_ptr<TokenSigner> TokenSigner::signerWithKeyID(std::string_view keyID,
                                                          std::string_view issuerID,
                                                          Error* error) {
    const CleanErrorQueue clean;
    if (!isIdentifier(keyID) || !isIdentifier(issuerID)) {
        fail(error,
             signerError(Code::badIdentifier,
                         isIdentifier(keyID)
                             ? localized("The issuer’s identifier has characters it cannot have.")
                             : localized("The key’s identifier has characters it cannot have.")));
        return nullptr;
    }
    const auto path = keyFile(keyID, error);
    KeyHandle handle = path ? readKey(*path, error) : nullptr;
    if (!handle) {
        return nullptr;
    }
    auto key = std::make_unique<Key>();
    key->handle = std::move(handle);
    return std::shared_ptr<TokenSigner>(new TokenSigner(std::move(key), keyID, issuerID));
}

TokenSigner::TokenSigner(std::unique_ptr<Key> key,
                         std::string_view keyID,
                         std::string_view issuerID)
    : key_(std::move(key)), keyID_(keyID), issuerID_(issuerID) {
}

TokenSigner::~TokenSigner() = default;

std::optional<std::string> TokenSigner::token(Date now, Error* error) const {
    const CleanErrorQueue clean;
    const auto issued = static_cast<std::int64_t>(std::floor(now.unixSeconds()));
    const auto expires = issued + static_cast<std::int64_t>(lifetime.count());
    const std::string header = format(R"({"alg":"ES256","kid":"%@","typ":"JWT"})", keyID_);
    const std::string claims =
        format(R"({"iss":"%@","iat":%lld,"exp":%lld,"aud":"%@"})", issuerID_,
               static_cast<long long>(issued), static_cast<long long>(expires), audience);
    std::string result =
        encodeBase64(header, Base64Form::url) + '.' + encodeBase64(claims, Base64Form::url);
    const std::string signature = sign(key_->handle.get(), result);
    if (signature.empty()) {
        fail(error, signerError(Code::signing, localized("The key did not sign.")));
        return std::nullopt;
    }
    return result + '.' + encodeBase64(signature, Base64Form::url);
}

}  // namespace velto
