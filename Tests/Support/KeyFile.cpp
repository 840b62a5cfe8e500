#include <Tests/Support/KeyFile.h>

#include <openssl/ecdsa.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <stdexcept>
#include <vector>

namespace velto::testing {

namespace {

EVP_PKEY* keyOf(const std::shared_ptr<void>& key) {
    return static_cast<EVP_PKEY*>(key.get());
}

template <class Write>
std::string written(const Write& write) {
    const std::unique_ptr<BIO, decltype(&BIO_free_all)> bio(BIO_new(BIO_s_mem()), &BIO_free_all);
    if (write(bio.get()) != 1) {
        throw std::runtime_error("a key could not be written");
    }
    char* bytes = nullptr;
    const long length = BIO_get_mem_data(bio.get(), &bytes);
    return {bytes, static_cast<std::size_t>(length)};
}

const unsigned char* unsignedBytes(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

}  // namespace

KeyFile KeyFile::make(std::string_view kind) {
    EVP_PKEY* key = kind == "RSA"
                        ? EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", std::size_t{2048})
                        : EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", std::string(kind).c_str());
    if (key == nullptr) {
        throw std::runtime_error("a key could not be made");
    }
    KeyFile file;
    file.key_.reset(key, [](void* it) { EVP_PKEY_free(static_cast<EVP_PKEY*>(it)); });
    return file;
}

std::string KeyFile::pem() const {
    return written([this](BIO* bio) {
        return PEM_write_bio_PKCS8PrivateKey(bio, keyOf(key_), nullptr, nullptr, 0, nullptr,
                                             nullptr);
    });
}

std::string KeyFile::encryptedPEM(std::string_view password) const {
    return written([&](BIO* bio) {
        return PEM_write_bio_PKCS8PrivateKey(bio, keyOf(key_), EVP_aes_256_cbc(), password.data(),
                                             static_cast<int>(password.size()), nullptr, nullptr);
    });
}

std::string KeyFile::publicPEM() const {
    return written([this](BIO* bio) { return PEM_write_bio_PUBKEY(bio, keyOf(key_)); });
}

bool KeyFile::verifies(std::string_view text, std::string_view signature) const {
    if (signature.size() != 64) {
        return false;
    }
    const std::unique_ptr<ECDSA_SIG, decltype(&ECDSA_SIG_free)> numbers(ECDSA_SIG_new(),
                                                                        &ECDSA_SIG_free);
    ECDSA_SIG_set0(numbers.get(), BN_bin2bn(unsignedBytes(signature), 32, nullptr),
                   BN_bin2bn(unsignedBytes(signature.substr(32)), 32, nullptr));
    std::vector<unsigned char> encoded(
        static_cast<std::size_t>(i2d_ECDSA_SIG(numbers.get(), nullptr)));
    unsigned char* end = encoded.data();
    i2d_ECDSA_SIG(numbers.get(), &end);
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                          &EVP_MD_CTX_free);
    return EVP_DigestVerifyInit(context.get(), nullptr, EVP_sha256(), nullptr, keyOf(key_)) == 1 &&
           EVP_DigestVerify(context.get(), encoded.data(), encoded.size(), unsignedBytes(text),
                            text.size()) == 1;
}

}  // namespace velto::testing
