#include <VeltoConnectFoundation/Platform/TextEncoding.h>

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;
using velto::decodeText;
using velto::encodeText;
using velto::TextEncoding;

TEST(TextEncoding, DecodesAndEncodesEachEncoding) {
    struct Row {
        const char* name;
        TextEncoding encoding;
        std::string bytes;
        std::string text;
    };
    const std::vector<Row> rows{
        {"ascii", TextEncoding::ascii, "plain", "plain"},
        {"utf8", TextEncoding::utf8, "aé€😀", "aé€😀"},
        {"latin1", TextEncoding::isoLatin1, "caf\xE9\xFF", "caféÿ"},
        {"utf16 LE mark", TextEncoding::utf16,
         "\xFF\xFE"
         "a\0\x3D\xD8\x00\xDE"s,
         "a😀"},
        {"utf16 BE", TextEncoding::utf16BigEndian, "\0a\xD8\x3D\xDE\x00"s, "a😀"},
        {"utf16 LE", TextEncoding::utf16LittleEndian, "a\0\x3D\xD8"s, "a\xED\xA0\xBD"},
        {"utf32 LE mark", TextEncoding::utf32, "\xFF\xFE\0\0\x00\xF6\x01\0"s, "😀"},
        {"utf32 BE", TextEncoding::utf32BigEndian, "\0\x01\xF6\x00"s, "😀"},
        {"utf32 LE", TextEncoding::utf32LittleEndian, "\x00\xF6\x01\0"s, "😀"},
        {"mac", TextEncoding::macRoman, "\x8E\xDB", "é€"},
        {"windows", TextEncoding::windowsLatin1, "\x80\xE9", "€é"},
        {"shift-jis", TextEncoding::shiftJIS, "\x83\x65\x83\x58", "テス"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(decodeText(row.bytes, row.encoding), row.text);
        EXPECT_EQ(encodeText(row.text, row.encoding), row.bytes);
        EXPECT_EQ(decodeText("", row.encoding), "");
    }
}

TEST(TextEncoding, RefusesWhatIsNotValid) {
    struct Row {
        const char* name;
        TextEncoding encoding;
        std::string bytes;
    };
    const std::vector<Row> rows{
        {"ascii high", TextEncoding::ascii, "\x80"},
        {"stray continuation", TextEncoding::utf8, "a\x80"},
        {"cut", TextEncoding::utf8, "\xE2\x82"},
        {"overlong 2", TextEncoding::utf8, "\xC0\xAF"},
        {"overlong 3", TextEncoding::utf8, "\xE0\x80\xAF"},
        {"overlong 4", TextEncoding::utf8, "\xF0\x80\x80\xAF"},
        {"surrogate", TextEncoding::utf8, "\xED\xA0\x80"},
        {"beyond", TextEncoding::utf8, "\xF4\x90\x80\x80"},
        {"five bytes", TextEncoding::utf8, "\xF8\x88\x80\x80\x80"},
        {"late in long text", TextEncoding::utf8, std::string(100, 'a') + "\xFF"},
        {"odd utf16", TextEncoding::utf16BigEndian, "\0a\0"s},
        {"short utf32", TextEncoding::utf32BigEndian, "\0\0\0"s},
        {"utf32 surrogate", TextEncoding::utf32BigEndian, "\0\0\xD8\0"s},
        {"utf32 beyond", TextEncoding::utf32BigEndian, "\0\x11\0\0"s},
        {"shift-jis lead alone", TextEncoding::shiftJIS, "a\x83"},
        {"unknown encoding", static_cast<TextEncoding>(12345), "a"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(decodeText(row.bytes, row.encoding), std::nullopt);
        if (row.encoding == TextEncoding::utf8) {
            EXPECT_FALSE(velto::isValidUTF8(row.bytes));
            EXPECT_FALSE(velto::isValidUTF8("€" + row.bytes + "€€"));
        }
    }
    EXPECT_EQ(encodeText("é", TextEncoding::ascii), std::nullopt);
    EXPECT_EQ(encodeText("€", TextEncoding::isoLatin1), std::nullopt);
    EXPECT_EQ(encodeText("テ", TextEncoding::macRoman), std::nullopt);
    for (const TextEncoding encoding :
         {TextEncoding::utf8, TextEncoding::utf32BigEndian, TextEncoding::shiftJIS}) {
        EXPECT_EQ(encodeText("\xED\xA0\xBD", encoding), std::nullopt);
    }
}

TEST(TextEncoding, FindsCharsetsByName) {
    EXPECT_EQ(decodeText("caf\xE9", "ISO-8859-1"), "café");
    EXPECT_EQ(decodeText("\xE9", "UTF-8"), std::nullopt);
    EXPECT_EQ(decodeText("\0a"s, "utf-16"), "a");
    EXPECT_EQ(decodeText("\xA4", "iso-8859-15"), "€");
    EXPECT_EQ(decodeText("\xC4\xE3", "GB2312"), "你");
    for (const std::string_view name : {"x-unknown"sv, ""sv, "utf-8\0x"sv}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(decodeText("a", name), std::nullopt);
        EXPECT_FALSE(velto::isKnownCharset(name));
    }
    EXPECT_TRUE(velto::isKnownCharset("Windows-1251"));
    EXPECT_TRUE(velto::isKnownCharset("us-ascii"));
}

TEST(TextEncoding, AnyUnitsSurviveTheWayThroughUTF8) {
    const std::uint64_t seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937_64 engine(seed);
    const std::vector<char16_t> edges{0,      'a',    0x7F,   0x80,   0x7FF,  0x800,
                                      0xD7FF, 0xD800, 0xDBFF, 0xDC00, 0xDFFF, 0xFFFF};
    for (int round = 0; round < 2000; ++round) {
        std::u16string units(engine() % 100, u'a');
        for (char16_t& unit : units) {
            if (engine() % 3 == 0) {
                unit = edges[engine() % edges.size()];
            }
        }
        const std::string text = velto::utf8FromUTF16(units);
        ASSERT_EQ(velto::utf16FromUTF8(text), units);
        ASSERT_EQ(velto::utf16Length(text), units.size());
        const std::size_t cut = engine() % (units.size() + 2);
        ASSERT_EQ(velto::utf16FromUTF8(velto::utf16Prefix(text, cut)), units.substr(0, cut));
    }
    EXPECT_EQ(velto::utf16FromUTF8("a\x80\xE2\x82z"), u"a\uFFFD\uFFFD\uFFFDz");
    EXPECT_EQ(velto::utf16Length("a\x80\xE2\x82z"), 5U);
}

TEST(TextEncoding, FindsIgnoringCase) {
    EXPECT_EQ(velto::findIgnoringCase("Die STRÄSSE", "strässe"), 4U);
    EXPECT_EQ(velto::findIgnoringCase("aab", "AB"), 1U);
    EXPECT_EQ(velto::findIgnoringCase("ab", "abc"), std::string::npos);
    EXPECT_EQ(velto::findIgnoringCase("abab", "B", 2), 3U);
    EXPECT_EQ(velto::findIgnoringCase("ab", "B", 3), std::string::npos);
    EXPECT_EQ(velto::findIgnoringCase("ab", "", 2), 2U);
    EXPECT_EQ(velto::findIgnoringCase("\u212Aelvin", "kelvin"), 0U);
    EXPECT_EQ(velto::findIgnoringCase("", "x"), std::string::npos);
}

TEST(TextEncoding, TrimsUnicodeWhiteSpace) {
    EXPECT_EQ(velto::trimmed("\u00A0\t x y\u2003\u3000\r\n"), "x y");
    EXPECT_EQ(velto::trimmed(" \u0085\u2029 "), "");
    EXPECT_EQ(velto::trimmed(""), "");
    EXPECT_EQ(velto::trimmed("\u200Bx\u180E"), "\u200Bx\u180E");
    EXPECT_EQ(velto::trimmed("é\x80 "), "é\x80");
    EXPECT_EQ(velto::leadingInteger("\u00A0\t-12 items"), -12);
    int count = 0;
    for (char32_t character = 0; character <= 0x10FFFF; ++character) {
        count += velto::isWhiteSpace(character) ? 1 : 0;
    }
    EXPECT_EQ(count, 25);
}

TEST(TextEncoding, SplitsAndReplaces) {
    using Pieces = std::vector<std::string_view>;
    EXPECT_EQ(velto::split("a,,b,", ","), (Pieces{"a", "", "b", ""}));
    EXPECT_EQ(velto::split("", ","), Pieces{""});
    EXPECT_EQ(velto::split("ab", ""), Pieces{"ab"});
    EXPECT_EQ(velto::replaceAll("aaa", "aa", "b"), "ba");
    EXPECT_EQ(velto::replaceAll("a.b.c", ".", ".."), "a..b..c");
    EXPECT_EQ(velto::replaceAll("abc", "", "x"), "abc");
}

}  // namespace
