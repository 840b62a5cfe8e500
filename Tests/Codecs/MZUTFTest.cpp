#include <VeltoConnectFoundation/Codecs/MZUTF.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace std::string_literals;
using velto::Error;
using velto::TextEncoding;

const std::uint8_t* bytesOf(const std::string& text) {
    return reinterpret_cast<const std::uint8_t*>(text.data());
}

constexpr const char* tooFew =
    "The character buffer doesn’t contain enough data to decode the UTF-8 character.";
constexpr const char* tooMany =
    "The UTF-8 character sequence indicates more bytes than UTF-8 supports.";
constexpr const char* secondByte = "The second byte of the UTF-8 character sequence is invalid.";
constexpr const char* thirdByte = "The third byte of the UTF-8 character sequence is invalid.";

TEST(MZUTF, SequenceLengthsByLeadByte) {
    for (unsigned lead = 0; lead < 256; ++lead) {
        const std::size_t expected = lead < 0xC0   ? 1
                                     : lead < 0xE0 ? 2
                                     : lead < 0xF0 ? 3
                                     : lead < 0xF8 ? 4
                                     : lead < 0xFC ? 5
                                     : lead < 0xFE ? 6
                                     : lead < 0xFF ? 7
                                                   : 8;
        EXPECT_EQ(
            MZUTF8BytesToDecodeCharacterBasedOnMostSignifantByte(static_cast<std::uint8_t>(lead)),
            expected)
            << lead;
    }
}

TEST(MZUTF, EveryUnitReadsBackInEveryEncoding) {
    for (std::uint32_t value = 0; value < 0x10000; ++value) {
        const auto unit = static_cast<char16_t>(value);
        std::uint8_t bytes[3];
        std::size_t count = 0;
        std::size_t consumed = 0;
        char16_t back = 0;
        ASSERT_TRUE(MZUTF8Encode16BitsToBytes(unit, bytes, count));
        ASSERT_EQ(count, value < 0x80 ? 1U : value < 0x800 ? 2U : 3U);
        ASSERT_FALSE(MZUTF8DecodeBytesTo16Bits(bytes, count, consumed, back));
        ASSERT_EQ(back, unit);
        ASSERT_EQ(consumed, count);
        std::uint32_t wide = 0;
        ASSERT_FALSE(MZUTF8DecodeBytesTo32Bits(bytes, count, consumed, wide));
        ASSERT_EQ(wide, value);
        ASSERT_TRUE(MZUTF16LEEncode16BitsToBytes(unit, bytes, count));
        ASSERT_FALSE(MZUTF16LEDecodeBytesTo16Bits(bytes, 2, back));
        ASSERT_EQ(back, unit);
        std::swap(bytes[0], bytes[1]);
        ASSERT_FALSE(MZUTF16BEDecodeBytesTo16Bits(bytes, 2, back));
        ASSERT_EQ(back, unit);
        ASSERT_TRUE(MZUTF16BEEncode16BitsToBytes(unit, bytes, count));
        ASSERT_EQ(bytes[0], value >> 8);
        ASSERT_EQ(bytes[1], value & 0xFF);
    }
}

TEST(MZUTF, Encoding32BitsCountsSixBitsAByte) {
    struct Row {
        std::uint32_t value;
        std::string bytes;
    };
    const Row rows[] = {
        {0x7F, "\x7F"},
        {0x80, "\xC2\x80"},
        {0x7FF, "\xDF\xBF"},
        // Required: 12, 17 and 18 bits lose their highest ones.
        {0x800, "\xC0\x80"},
        {0xFFF, "\xDF\xBF"},
        {0x1000, "\xE1\x80\x80"},
        {0xFFFF, "\xEF\xBF\xBF"},
        {0x10000, "\xE0\x80\x80"},
        {0x3FFFF, "\xEF\xBF\xBF"},
        {0x40000, "\xF1\x80\x80\x80"},
        {0x10FFFF, "\xF4\x8F\xBF\xBF"},
        {0x1000000, "\xF9\x80\x80\x80\x80"},
        {0x40000000, "\xFD\x80\x80\x80\x80\x80"},
        {0x7FFFFFFF, "\xFD\xBF\xBF\xBF\xBF\xBF"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.value);
        std::uint8_t bytes[6];
        std::size_t count = 0;
        ASSERT_TRUE(MZUTF8Encode32BitsToBytes(row.value, bytes, count));
        EXPECT_EQ(std::string(bytes, bytes + count), row.bytes);
    }
    std::uint8_t bytes[6] = {1};
    std::size_t count = 77;
    EXPECT_FALSE(MZUTF8Encode32BitsToBytes(0x80000000, bytes, count));
    EXPECT_EQ(count, 77U);
    EXPECT_EQ(bytes[0], 1);
}

TEST(MZUTF, DecodingIsLenientButBounded) {
    struct Row {
        std::string bytes;
        std::int64_t code16;
        const char* text16;
        std::uint32_t value16;
        std::int64_t code32;
        std::uint32_t value32;
        std::size_t consumed;
    };
    const Row rows[] = {
        {"A", 0, "", 'A', 0, 'A', 1},
        {"\x80", 0, "", 0, 0, 0, 1},
        {"\xBF", 0, "", 0x3F, 0, 0x3F, 1},
        {"\xC0\x80", 0, "", 0, 0, 0, 2},
        {"\xC3\xA9more", 0, "", 0xE9, 0, 0xE9, 2},
        {"\xED\xA0\x80", 0, "", 0xD800, 0, 0xD800, 3},
        {"\xC3", -10000, tooFew, 0, -10000, 0, 0},
        {"\xE2\x82", -10000, tooFew, 0, -10000, 0, 0},
        {"", -10000, tooFew, 0, -10000, 0, 0},
        {"\xC3(", -10001, secondByte, 0, 0, 0xE8, 2},
        {"\xE2(\xA1", -10001, secondByte, 0, 0, 0x2A21, 3},
        {"\xE2\x82(", -10001, thirdByte, 0, 0, 0x20A8, 3},
        {"\xF0\x9F\x98\x80", -10010, tooMany, 0, 0, 0x1F600, 4},
        {"\xF0\x9F\x98", -10010, tooMany, 0, -10000, 0, 0},
        {"\xFD\xBF\xBF\xBF\xBF\xBF", -10010, tooMany, 0, 0, 0x7FFFFFFF, 6},
        {"\xFE\x80\x80\x80\x80\x80\x80", -10010, tooMany, 0, -10010, 0, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::PrintToString(row.bytes));
        std::size_t consumed = 77;
        char16_t unit = 0x77;
        Error error =
            MZUTF8DecodeBytesTo16Bits(bytesOf(row.bytes), row.bytes.size(), consumed, unit);
        EXPECT_EQ(error.code(), row.code16);
        if (row.code16 != 0) {
            EXPECT_EQ(error.domain(), MZUTFUtilitiesErrorDomain);
            EXPECT_EQ(error.localizedDescription(), row.text16);
        }
        EXPECT_EQ(unit, row.code16 != 0 ? 0x77 : row.value16);
        EXPECT_EQ(consumed, row.code16 != 0 ? 77 : row.consumed);
        consumed = 77;
        std::uint32_t value = 0x77;
        error = MZUTF8DecodeBytesTo32Bits(bytesOf(row.bytes), row.bytes.size(), consumed, value);
        EXPECT_EQ(error.code(), row.code32);
        EXPECT_EQ(value, row.code32 != 0 ? 0x77 : row.value32);
        EXPECT_EQ(consumed, row.code32 != 0 ? 77 : row.consumed);
    }
}

TEST(MZUTF, UTF16NeedsTwoBytes) {
    const std::uint8_t byte = 0;
    char16_t unit = 7;
    const Error little = MZUTF16LEDecodeBytesTo16Bits(&byte, 1, unit);
    const Error big = MZUTF16BEDecodeBytesTo16Bits(&byte, 1, unit);
    EXPECT_EQ(little.code(), -10020);
    EXPECT_EQ(big.code(), -10030);
    for (const Error& error : {little, big}) {
        EXPECT_EQ(error.localizedDescription(),
                  "The character buffer doesn’t contain enough bytes to decode the UTF-16 "
                  "character.");
        EXPECT_EQ(error.localizedFailureReason(),
                  "Insufficient data for UTF-16 character sequence");
    }
    EXPECT_EQ(unit, 7);
}

TEST(MZUTF, EncodingsAreToldByMarkOrByZeros) {
    struct Row {
        std::string bytes;
        bool marked;
        bool decided;
        std::size_t markLength;
        TextEncoding encoding;
    };
    constexpr auto none = static_cast<TextEncoding>(0);
    const Row rows[] = {
        {"\xFF\xFE\0\0"s, true, true, 4, TextEncoding::utf32LittleEndian},
        {"\0\0\xFE\xFF"s, true, true, 4, TextEncoding::utf32BigEndian},
        {"\xEF\xBB\xBF", true, true, 3, TextEncoding::utf8},
        {"\xFF\xFE{\0"s, true, true, 2, TextEncoding::utf16LittleEndian},
        {"\xFE\xFF", true, true, 2, TextEncoding::utf16BigEndian},
        {"\xEF\xBB", false, false, 0, none},
        {"", false, false, 0, none},
        {"{ }", false, false, 0, none},
        {"{\"a\"", false, true, 0, TextEncoding::utf8},
        {"\0\0\0{"s, false, true, 0, TextEncoding::utf32BigEndian},
        {"\0\0\0\0"s, false, true, 0, TextEncoding::utf32BigEndian},
        {"\0{\0}"s, false, true, 0, TextEncoding::utf16BigEndian},
        {"{\0\0\0"s, false, true, 0, TextEncoding::utf32LittleEndian},
        {"{\0}\0"s, false, true, 0, TextEncoding::utf16LittleEndian},
        {"\0{}\0"s, false, true, 0, TextEncoding::utf8},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::PrintToString(row.bytes));
        std::size_t length = 77;
        auto encoding = none;
        EXPECT_EQ(MZUTFDetermineByteOrderMarkEncoding(bytesOf(row.bytes), row.bytes.size(), length,
                                                      encoding),
                  row.marked);
        EXPECT_EQ(length, row.marked ? row.markLength : 77);
        EXPECT_EQ(encoding, row.marked ? row.encoding : none);
        EXPECT_EQ(MZUTFDetermineEncodingFromBytesWithASCIIFirstCharacter(
                      bytesOf(row.bytes), row.bytes.size(), length, encoding),
                  row.decided);
        EXPECT_EQ(length, row.markLength);
        EXPECT_EQ(encoding, row.encoding);
    }
}

}  // namespace
