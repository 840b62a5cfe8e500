#include <VeltoConnectFoundation/Platform/PropertyList.h>

#include <Tests/Support/IsError.h>

#include <gtest/gtest.h>

#include <limits>

namespace {

using velto::Array;
using velto::Data;
using velto::Date;
using velto::Dictionary;
using velto::Error;
using velto::PropertyList;
using velto::Value;
using velto::testing::IsError;

std::string plist(const std::string& content) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//X//Y\" \"http://store.invalid/plist.dtd\">\n"
           "<plist version=\"1.0\">" +
           content + "</plist>\n";
}

/// A binary list: objects in order, one byte for an offset and for a reference.
std::string binary(const std::vector<std::string>& objects, std::uint64_t top = 0) {
    std::string bytes = "bplist00";
    std::string offsets;
    for (const std::string& object : objects) {
        offsets += static_cast<char>(bytes.size());
        bytes += object;
    }
    const std::size_t table = bytes.size();
    bytes += offsets + std::string(6, '\0') + "\1\1";
    for (const std::uint64_t number : {std::uint64_t{objects.size()}, top, std::uint64_t{table}}) {
        for (int shift = 56; shift >= 0; shift -= 8) {
            bytes += static_cast<char>(number >> shift);
        }
    }
    return bytes;
}

std::string bytes(std::initializer_list<int> values) {
    std::string result;
    for (const int value : values) {
        result += static_cast<char>(value);
    }
    return result;
}

TEST(PropertyList, ReadsTheXMLForm) {
    const struct {
        const char* content;
        Value expected;
    } rows[] = {
        {"<string> a &amp; é </string>", " a & é "},
        {"<string/>", ""},
        {"<integer> -12 </integer>", -12},
        {"<integer>+12</integer>", 12},
        {"<integer>0xfF</integer>", 255},
        {"<integer>18446744073709551615</integer>", std::numeric_limits<std::uint64_t>::max()},
        {"<real>-1.5e3</real>", -1500.0},
        {"<real>+infinity</real>", std::numeric_limits<double>::infinity()},
        {"<true/>", true},
        {"<date>2001-01-02T00:00:01Z</date>", Date{86401}},
        {"<data>\n\tZm9v\n\tYmE=\n</data>", Data(std::string_view("fooba"))},
        {"<array><integer>1</integer><array/></array>", Array{1, Array{}}},
        {"<dict><key>a</key><string>x</string>\n<key></key><false/></dict>",
         Dictionary{{"a", "x"}, {"", false}}},
        {"<dict><key>a</key><true/><key>a</key><false/></dict>", Dictionary{{"a", false}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.content);
        Error error;
        const auto value = PropertyList::parse(plist(row.content), &error);
        ASSERT_TRUE(value.has_value()) << error.description();
        EXPECT_EQ(*value, row.expected);
        EXPECT_EQ(value->kind(), row.expected.kind());
    }
}

TEST(PropertyList, RefusesWhatIsNoXMLForm) {
    for (const std::string& text : {std::string(),
                                    std::string("<html/>"),
                                    std::string("<dict/>"),
                                    plist(""),
                                    plist("<true/><true/>"),
                                    plist("x<true/>"),
                                    plist("<integer>12x</integer>"),
                                    plist("<integer>99999999999999999999</integer>"),
                                    plist("<integer>+-1</integer>"),
                                    plist("<integer/>"),
                                    plist("<real>1,5</real>"),
                                    plist("<date>yesterday</date>"),
                                    plist("<date>2001-02-29T00:00:00Z</date>"),
                                    plist("<date>2001-01-01T24:00:00Z</date>"),
                                    plist("<data>Zm9=</data>"),
                                    plist("<data>&lt;</data>"),
                                    plist("<true>x</true>"),
                                    plist("<dict><key>a</key></dict>"),
                                    plist("<dict><string>a</string><true/></dict>"),
                                    plist("<dict>x</dict>"),
                                    plist("<array>x</array>"),
                                    plist("<string><b/></string>"),
                                    plist("<canary/>"),
                                    plist("<string>\xff</string>"),
                                    plist("<true/>") + "canary"}) {
        SCOPED_TRACE(text);
        Error error;
        EXPECT_FALSE(PropertyList::parse(text, &error).has_value());
        EXPECT_THAT(error, IsError(velto::PropertyListErrorDomain, 1));
        EXPECT_EQ(error.description().find("canary"), std::string::npos) << error.description();
    }
}

/// What the writer has no use for; the rest is read back from it below.
TEST(PropertyList, ReadsTheBinaryForm) {
    const struct {
        const char* name;
        std::string list;
        Value expected;
    } rows[] = {
        {"large unsigned", binary({"\x14" + std::string(8, '\0') + std::string(8, '\xff')}),
         std::numeric_limits<std::uint64_t>::max()},
        {"float", binary({bytes({0x22, 0x3f, 0xc0, 0, 0})}), 1.5F},
        {"wide text", binary({bytes({0x62, 0xd8, 0x3d, 0xde, 0x00})}), "😀"},
        {"long text", binary({bytes({0x5f, 0x10, 16}) + "0123456789abcdef"}), "0123456789abcdef"},
        {"shared", binary({bytes({0xa2, 1, 1}), bytes({0xa1, 2}), "\x08"}),
         Array{Array{false}, Array{false}}},
        {"another top", binary({"\x09", bytes({0xa1, 0})}, 1), Array{true}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Error error;
        const auto value = PropertyList::parse(row.list, &error);
        ASSERT_TRUE(value.has_value()) << error.description();
        EXPECT_EQ(*value, row.expected);
        EXPECT_EQ(value->kind(), row.expected.kind());
    }
}

TEST(PropertyList, RefusesDamagedBinaryForms) {
    std::vector<std::string> bomb;  // 10 references to the next, 30 times over
    for (int i = 1; i <= 30; ++i) {
        bomb.push_back("\xaa" + std::string(10, static_cast<char>(i)));
    }
    bomb.emplace_back("\x09");
    const struct {
        const char* name;
        std::string list;
    } rows[] = {
        {"header alone", "bplist00"},
        {"no object", binary({})},
        {"top beyond the objects", binary({"\x09"}, 1)},
        {"itself", binary({bytes({0xa1, 0})})},
        {"reference beyond the objects", binary({bytes({0xa1, 1})})},
        {"text beyond the table", binary({"\x5e"
                                          "ab"})},
        {"size beyond everything", binary({"\x5f\x13" + std::string(8, '\x7f')})},
        {"array of a huge size", binary({"\xaf\x13" + std::string(8, '\xff')})},
        {"key that is no text", binary({bytes({0xd1, 1, 1}), "\x09"})},
        {"text that is not ASCII", binary({"\x51\xe9"})},
        {"half a pair", binary({bytes({0x61, 0xd8, 0x3d})})},
        {"null", binary({std::string(1, '\0')})},
        {"date that is no number", binary({bytes({0x33, 0x7f, 0xf8, 0, 0, 0, 0, 0, 0})})},
        {"unknown kind", binary({"\xf0"})},
        {"grows without end", binary(bomb)},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Error error;
        EXPECT_FALSE(PropertyList::parse(row.list, &error).has_value());
        EXPECT_THAT(error, IsError(velto::PropertyListErrorDomain, 1));
    }
}

TEST(PropertyList, WhatIsWrittenReadsBackInBothForms) {
    const Value value = Dictionary{
        {"text", "a <&> \"b\"\t\r\n é 😀"},
        {"numbers", Array{0, -1, 255, std::numeric_limits<std::int64_t>::max(),
                          std::numeric_limits<std::int64_t>::min(), 0.1, 1e300}},
        {"truth", Array{true, false}},
        {"date", Date{123456789}},
        {"data", Data(std::string_view("\0\xff\1", 3))},
        {"empty", Array{Dictionary{}, Array{}, "", Data()}},
        {"", "empty key"},
    };
    Error error;
    const auto xml = PropertyList::xml(value, &error);
    ASSERT_TRUE(xml.has_value()) << error.description();
    EXPECT_EQ(PropertyList::parse(*xml), value);
    EXPECT_EQ(xml->find("DOCTYPE"), std::string::npos);

    const auto list = PropertyList::binary(value, &error);
    ASSERT_TRUE(list.has_value()) << error.description();
    EXPECT_EQ(PropertyList::parse(list->view()), value);
}

TEST(PropertyList, TheXMLFormHasALineForEachElement) {
    EXPECT_EQ(PropertyList::xml(Dictionary{{"rovquill", "a<b"}, {"n", Array{1, 2.5, true}}}),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<plist version=\"1.0\">\n"
              "<dict>\n"
              "\t<key>rovquill</key>\n"
              "\t<string>a&lt;b</string>\n"
              "\t<key>n</key>\n"
              "\t<array>\n"
              "\t\t<integer>1</integer>\n"
              "\t\t<real>2.5</real>\n"
              "\t\t<true/>\n"
              "\t</array>\n"
              "</dict>\n"
              "</plist>\n");
}

TEST(PropertyList, WhatHasNoFormIsAnError) {
    Value deep = Array{};
    for (int i = 0; i < 128; ++i) {
        deep = Array{deep};
    }
    const struct {
        const char* name;
        Value value;
        bool hasXML;
        bool hasBinary;
    } rows[] = {
        {"none", {}, false, false},
        {"null", Array{velto::Null{}}, false, false},
        {"key that is no text", Dictionary{{1, 2}}, false, false},
        {"too deep", deep, false, false},
        {"object", Array{Error("Domain", 1)}, false, false},
        {"control character", "a\x01", false, true},
        {"character XML has not", "\uffff", false, true},
        {"invalid text", "\xff", false, false},
        {"zero byte", std::string_view("\0", 1), false, false},
        {"large unsigned", std::numeric_limits<std::uint64_t>::max(), true, false},
        {"far date", Date{1e10}, true, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Error error;
        EXPECT_EQ(PropertyList::xml(row.value, &error).has_value(), row.hasXML);
        EXPECT_EQ(PropertyList::binary(row.value, &error).has_value(), row.hasBinary);
        EXPECT_THAT(error, IsError(velto::PropertyListErrorDomain, 2));
    }
}

TEST(PropertyList, SizeAndLevelsAreBounded) {
    std::string deep;
    for (int i = 0; i < 130; ++i) {
        deep = "<array>" + deep + "</array>";
    }
    EXPECT_TRUE(PropertyList::parse(plist(deep)).has_value());
    const std::string large = plist("<string>" + std::string(1 << 20, 'x') + "</string>");
    EXPECT_FALSE(PropertyList::parse(large).has_value());
}

}  // namespace
