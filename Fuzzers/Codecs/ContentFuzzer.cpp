// A content dictionary from outside: the first byte chooses the key, the rest is its text; and the
// same bytes as a gzip block. Both end in bytes or an error, within the limit.

#include <VeltoConnectFoundation/Codecs/MZBase64EncodingUtilities.h>
#include <VeltoConnectFoundation/Codecs/MZCompressionUtilities.h>
#include <VeltoConnectFoundation/Platform/UserDefaults.h>

#include <Fuzzers/Support/Require.h>

namespace {

constexpr std::int64_t limit = 1 << 16;

bool setLimit() {
    velto::UserDefaults::shared().setArguments({{MZInflatedSizeLimit, limit}});
    return true;
}

void inflate(const velto::Data& block) {
    velto::Error error;
    const auto bytes = MZCompressionUtilities::defaultUtilities().gzipInflate(block, &error);
    require(bytes.has_value() == !error);
    if (bytes) {
        require(bytes->length() <= limit);
        const auto again = MZCompressionUtilities::defaultUtilities().gzipInflate(
            *MZCompressionUtilities::defaultUtilities().gzipDeflate(*bytes));
        require(again && *again == *bytes);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool isSet = setLimit();
    require(isSet);
    if (size == 0) {
        return 0;
    }
    const velto::Data rest(data + 1, size - 1);
    inflate(rest);

    velto::Dictionary content;
    content.set((data[0] & 1) != 0 ? MZGzipContentKey : MZContentKey, rest.view());
    if ((data[0] & 2) != 0) {
        content.set(MZContentChecksumKey, "d41d8cd98f00b204e9800998ecf8427e");
    }
    auto utilities = MZBase64EncodingUtilities::utilities();
    if ((data[0] & 4) != 0) {
        utilities.setEncoding(velto::TextEncoding::isoLatin1);
    }
    velto::Error error;
    const auto bytes = utilities.decodedData(content, &error);
    require(bytes.has_value() == !error);
    if (bytes) {
        const auto again = utilities.decodedData(*utilities.encodedData(*bytes));
        require(again && *again == *bytes);
    }
    return 0;
}
