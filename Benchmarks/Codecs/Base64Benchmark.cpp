// Base64 in lines of 76 characters and with an interval of 1024, both ways, beside a copy of the
// text, OpenSSL and GLib.

#include <Benchmarks/Support/RandomBytes.h>
#include <Benchmarks/Support/Row.h>
#include <VeltoConnectFoundation/Codecs/MZBase64Coder.h>

#include <glib.h>
#include <openssl/evp.h>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace {

using velto::Data;

struct Texts {
    Data bytes;
    Data text;
    std::string terminated;  ///< The text again, as GLib wants it.
    /// Room for the lines of 64 characters that OpenSSL writes.
    std::vector<unsigned char> room;
    std::unique_ptr<EVP_ENCODE_CTX, void (*)(EVP_ENCODE_CTX*)> context{EVP_ENCODE_CTX_new(),
                                                                       EVP_ENCODE_CTX_free};
};

bool encodeWithOpenSSL(Texts& texts) {
    int length = 0;
    EVP_EncodeInit(texts.context.get());
    const bool done =
        EVP_EncodeUpdate(texts.context.get(), texts.room.data(), &length, texts.bytes.bytes(),
                         static_cast<int>(texts.bytes.length())) == 1;
    EVP_EncodeFinal(texts.context.get(), texts.room.data() + length, &length);
    return done;
}

bool decodeWithOpenSSL(Texts& texts) {
    int length = 0;
    EVP_DecodeInit(texts.context.get());
    return EVP_DecodeUpdate(texts.context.get(), texts.room.data(), &length, texts.text.bytes(),
                            static_cast<int>(texts.text.length())) >= 0;
}

bool encodeWithGLib(const Texts& texts) {
    gchar* const text = g_base64_encode(texts.bytes.bytes(), texts.bytes.length());
    const bool done = text != nullptr;
    g_free(text);
    return done;
}

bool decodeWithGLib(const Texts& texts) {
    gsize length = 0;
    g_free(g_base64_decode(texts.terminated.c_str(), &length));
    return length == texts.bytes.length();
}

void addRows(const Data& bytes, std::size_t interval) {
    const MZBase64Coder coder;
    const auto texts = std::make_shared<Texts>();
    texts->bytes = bytes;
    texts->text = coder.encodedBase64ValueWithData(bytes, interval).value_or(Data());
    texts->terminated = texts->text.view();
    if (coder.decodedValueWithBase64Data(texts->text) != bytes) {
        std::cerr << "the text does not read back\n";
        std::exit(1);
    }
    const std::size_t length = texts->text.length();
    texts->room.resize(length + length / 32 + 128);
    const std::string name =
        std::to_string(bytes.length() / 1024) + " KiB, interval " + std::to_string(interval) + '/';
    for (const std::string way : {"encode ", "decode "}) {
        addRow(way + name + "memcpy to a new block", length,
               [=] { return Data(texts->text.view()).length() == length; });
        addRow(way + name + "memcpy to the same block", length, [=] {
            std::memcpy(texts->room.data(), texts->text.bytes(), length);
            benchmark::ClobberMemory();
            return true;
        });
    }
    addRow("encode " + name + "ours", length, [=] {
        return MZBase64Coder().encodedBase64ValueWithData(texts->bytes, interval).has_value();
    });
    addRow("encode " + name + "OpenSSL", length, [=] { return encodeWithOpenSSL(*texts); });
    addRow("encode " + name + "GLib", length, [=] { return encodeWithGLib(*texts); });
    addRow("decode " + name + "ours", length,
           [=] { return MZBase64Coder().decodedValueWithBase64Data(texts->text).has_value(); });
    addRow("decode " + name + "OpenSSL", length, [=] { return decodeWithOpenSSL(*texts); });
    addRow("decode " + name + "GLib", length, [=] { return decodeWithGLib(*texts); });
}

}  // namespace

int main(int argc, char** argv) {
    for (const std::size_t size : {4U << 10, 1U << 20, 16U << 20}) {
        const Data bytes{std::string_view(randomBytes(size))};
        for (const std::size_t interval : {57U, 1024U}) {
            addRows(bytes, interval);
        }
    }
    return runRows(argc, argv);
}
