// Base64 in lines of 76 characters and with an interval of 1024, both ways, beside a copy of the
// text, OpenSSL and GLib.

#include <Benchmarks/Support/Comparison.h>
#include <VeltoConnectFoundation/Codecs/MZBase64Coder.h>

#include <glib.h>
#include <openssl/evp.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

using velto::Data;

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

void compare(const Data& bytes, std::size_t interval, int turns) {
    const MZBase64Coder coder;
    const Data text = coder.encodedBase64ValueWithData(bytes, interval).value_or(Data());
    require(coder.decodedValueWithBase64Data(text) == bytes);
    // Room for the lines of 64 characters that OpenSSL writes.
    std::vector<unsigned char> buffer(text.length() + text.length() / 32 + 128);
    const std::string name =
        std::to_string(bytes.length() / 1024) + " KiB, interval " + std::to_string(interval);
    const auto addCopies = [&](Comparison& comparison) {
        comparison.add("memcpy of the text to a new block", [&] { Data(text.view()); })
            .add("memcpy of the text to the same block",
                 [&] { std::memcpy(buffer.data(), text.bytes(), text.length()); });
    };
    EVP_ENCODE_CTX* const context = EVP_ENCODE_CTX_new();

    Comparison encode("encode " + name, text.length());
    encode.add("ours",
               [&] { require(coder.encodedBase64ValueWithData(bytes, interval).has_value()); });
    addCopies(encode);
    encode
        .add("OpenSSL",
             [&] {
                 int length = 0;
                 EVP_EncodeInit(context);
                 EVP_EncodeUpdate(context, buffer.data(), &length, bytes.bytes(),
                                  static_cast<int>(bytes.length()));
                 EVP_EncodeFinal(context, buffer.data() + length, &length);
             })
        .add("GLib", [&] { g_free(g_base64_encode(bytes.bytes(), bytes.length())); })
        .print(turns);

    Comparison decode("decode " + name, text.length());
    decode.add("ours", [&] { require(coder.decodedValueWithBase64Data(text).has_value()); });
    addCopies(decode);
    const std::string terminated(text.view());
    decode
        .add("OpenSSL",
             [&] {
                 int length = 0;
                 EVP_DecodeInit(context);
                 require(EVP_DecodeUpdate(context, buffer.data(), &length,
                                          reinterpret_cast<const unsigned char*>(terminated.data()),
                                          static_cast<int>(terminated.size())) >= 0);
             })
        .add("GLib",
             [&] {
                 gsize length = 0;
                 g_free(g_base64_decode(terminated.c_str(), &length));
                 require(length == bytes.length());
             })
        .print(turns);
    EVP_ENCODE_CTX_free(context);
}

}  // namespace

int main() {
    // NOLINTNEXTLINE(cert-msc32-c,cert-msc51-cpp): the same bytes in every run
    std::mt19937 random(1);
    for (const std::size_t size : {4U << 10, 1U << 20, 16U << 20}) {
        std::string bytes(size, '\0');
        for (char& byte : bytes) {
            byte = static_cast<char>(random());
        }
        for (const std::size_t interval : {57U, 1024U}) {
            compare(Data(std::string_view(bytes)), interval, 7);
        }
    }
    return 0;
}
