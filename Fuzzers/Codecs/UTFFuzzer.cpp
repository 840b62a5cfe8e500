// The UTF functions on any bytes: within bounds, consistent with one another, and out-parameters
// untouched on failure.

#include <VeltoConnectFoundation/Codecs/MZUTF.h>

#include <Fuzzers/Support/Require.h>

#include <algorithm>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::size_t markLength = 77;
    auto encoding = velto::TextEncoding::ascii;
    if (MZUTFDetermineByteOrderMarkEncoding(data, size, markLength, encoding)) {
        require(markLength >= 2 && markLength <= size && encoding != velto::TextEncoding::ascii);
    } else {
        require(markLength == 77 && encoding == velto::TextEncoding::ascii);
    }
    const bool decided =
        MZUTFDetermineEncodingFromBytesWithASCIIFirstCharacter(data, size, markLength, encoding);
    require(decided || size < 4);

    for (std::size_t at = 0; at < size;) {
        // An own block for each call, so that a read beyond its end is seen.
        const std::vector<std::uint8_t> rest(data + at, data + std::min(size, at + 8));
        std::size_t consumed16 = 77;
        char16_t unit = 0;
        const velto::Error error16 =
            MZUTF8DecodeBytesTo16Bits(rest.data(), rest.size(), consumed16, unit);
        std::size_t consumed32 = 77;
        std::uint32_t value = 0;
        const velto::Error error32 =
            MZUTF8DecodeBytesTo32Bits(rest.data(), rest.size(), consumed32, value);
        require(!error32 ? consumed32 <= rest.size() : consumed32 == 77);
        if (!error16) {
            require(!error32 && consumed16 == consumed32 && unit == value);
            std::uint8_t bytes[3];
            std::size_t count = 0;
            char16_t back = 0;
            require(MZUTF8Encode16BitsToBytes(unit, bytes, count) && count <= consumed16);
            require(!MZUTF8DecodeBytesTo16Bits(bytes, count, consumed16, back) && back == unit);
        } else {
            require(consumed16 == 77);
        }
        if (!error32) {
            std::uint8_t bytes[6];
            std::size_t count = 0;
            require(MZUTF8Encode32BitsToBytes(value, bytes, count) && count <= consumed32);
        }
        if (rest.size() >= 2) {
            char16_t little = 0;
            char16_t big = 0;
            require(!MZUTF16LEDecodeBytesTo16Bits(rest.data(), 2, little));
            require(!MZUTF16BEDecodeBytesTo16Bits(rest.data(), 2, big));
            require(little == static_cast<char16_t>(big << 8 | big >> 8));
        }
        at += error32 ? 1 : consumed32;
    }
    return 0;
}
