#include <VeltoConnectFoundation/Codecs/MZJSONDeserializer.h>
#include <VeltoConnectFoundation/Codecs/MZJSONSerializer.h>
#include <VeltoConnectFoundation/Codecs/MZUTF.h>

#include <Tests/Support/ChunkedStream.h>
#include <Tests/Support/PrintValue.h>
#include <Tests/Support/RandomSeed.h>
#include <Tests/Support/SmallStack.h>

#include <gtest/gtest.h>
#include <malloc.h>

#include <array>
#include <bit>
#include <cmath>
#include <iterator>
#include <limits>

namespace {

using namespace velto;
using namespace std::string_literals;

constexpr double infinity = std::numeric_limits<double>::infinity();

struct Outcome {
    Value value;
    Error error;
};

Outcome readData(std::string_view document) {
    Outcome outcome;
    outcome.value = MZJSONDeserializer().deserializeJSONData(Data(document), &outcome.error);
    return outcome;
}

Outcome readStream(std::string_view document, velto::testing::Chunks chunks = {}) {
    Outcome outcome;
    const auto stream = std::make_shared<velto::testing::ChunkedInputStream>(std::string(document),
                                                                             std::move(chunks));
    outcome.value = MZJSONDeserializer().deserializeJSONStream(stream, &outcome.error);
    return outcome;
}

/// Character by character.
Outcome readPlainly(std::string_view document, const velto::testing::Chunks& chunks = {}) {
    const auto stream =
        std::make_shared<velto::testing::ChunkedInputStream>(std::string(document), chunks);
    std::array<std::uint8_t, 4> first{};
    for (std::size_t obtained = 0; obtained < first.size();) {
        const auto count = stream->read(&first[obtained], first.size() - obtained);
        if (count < 0 || document.size() < first.size()) {
            return readStream(document, chunks);
        }
        obtained += static_cast<std::size_t>(count);
    }
    std::size_t markLength = 0;
    auto encoding = TextEncoding::utf8;
    EXPECT_TRUE(MZUTFDetermineEncodingFromBytesWithASCIIFirstCharacter(first.data(), first.size(),
                                                                       markLength, encoding));
    MZStringStreamReader reader(encoding, stream);
    reader.pushBytes(first.data() + markLength, first.size() - markLength);
    Outcome outcome;
    outcome.value = MZJSONDeserializer().deserializeJSONStringReader(reader, &outcome.error);
    return outcome;
}

/// To the last bit of each number, and in the order of the keys.
bool areIdentical(const Value& left, const Value& right) {
    std::vector<std::pair<const Value*, const Value*>> pairs{{&left, &right}};
    std::vector<Array> arrays;
    std::vector<Dictionary> dictionaries;
    while (!pairs.empty()) {
        const auto [one, other] = pairs.back();
        pairs.pop_back();
        if (one->kind() != other->kind()) {
            return false;
        }
        if (one->isArray()) {
            const Array first = one->array();
            const Array second = other->array();
            if (first.size() != second.size()) {
                return false;
            }
            for (std::size_t i = 0; i < first.size(); ++i) {
                pairs.emplace_back(first.begin() + i, second.begin() + i);
            }
        } else if (one->isDictionary()) {
            const Dictionary first = one->dictionary();
            const Dictionary second = other->dictionary();
            if (first.size() != second.size()) {
                return false;
            }
            for (std::size_t i = 0; i < first.size(); ++i) {
                pairs.emplace_back(&first.begin()[i].key, &second.begin()[i].key);
                pairs.emplace_back(&first.begin()[i].value, &second.begin()[i].value);
            }
        } else if (one->isNumber() && !one->isNone() && one->kind() == ValueKind::doubleFloat) {
            if (std::bit_cast<std::uint64_t>(one->doubleValue()) !=
                std::bit_cast<std::uint64_t>(other->doubleValue())) {
                return false;
            }
        } else if (*one != *other) {
            return false;
        }
    }
    return true;
}

void expectAlike(std::string_view document, const Outcome& fast, const Outcome& plain) {
    EXPECT_TRUE(areIdentical(fast.value, plain.value))
        << document << "\nfast: " << fast.value.description()
        << "\nplain: " << plain.value.description();
    EXPECT_EQ(fast.error, plain.error) << document;
}

/// The fast ways of reading agree with the plain one on the document; answers what all say.
Outcome readAllWays(std::string_view document) {
    Outcome plain = readPlainly(document);
    expectAlike(document, readData(document), plain);
    expectAlike(document, readStream(document), plain);
    expectAlike(document, readStream(document, {.sizes = {5, 1, 0, 3}}), plain);
    if (document.size() >= 4 && isValidUTF8(document) && !document.starts_with("\uFEFF") &&
        document.substr(0, 4).find('\0') == std::string_view::npos) {
        // Without the runs that UTF-8 is read by.
        const auto wide =
            encodeText("\uFEFF" + std::string(document), TextEncoding::utf16LittleEndian);
        expectAlike(document, readPlainly(wide.value_or("")), plain);
    }
    return plain;
}

TEST(MZJSONDeserializer, ReadsValues) {
    const struct {
        std::string document;
        Value expected;
    } rows[] = {
        {" [] ", Array()},
        {" {} ", Dictionary()},
        {"[{}]", Array{Dictionary()}},
        {"[[]]", Array{Array()}},
        {"[true,false , null]", Array{true, false, Null{}}},
        {"\t{\"a\" :\r\n[ ] , \"b\":{\"c\":1}}\n",
         Dictionary{{"a", Array()}, {"b", Dictionary{{"c", 1}}}}},
        {"{1:2}", Dictionary{{1, 2}}},
        {"{[1]:{},null:3,true:4}", Dictionary{{Array{1}, Dictionary()}, {Null{}, 3}, {true, 4}}},
        // A repeated key keeps its place and takes the last value.
        {R"({"a":1,"b":2,"a":3})", Dictionary{{"a", 3}, {"b", 2}}},
        {"{1:2,true:3}", Dictionary{{1, 3}}},
        // White space of Unicode, and what is none of it.
        {"[1\v,\f2\xC2\x85,\xC2\xA0 3\xE2\x80\xA8]\xE3\x80\x80", Array{1, 2, 3}},
        // Numbers.
        {"[0,-0,1,-1,12345678901234567890]", Array{0, 0, 1, -1, 12345678901234567890.0}},
        {"[0.5e1,.5,5.,00.5,-01,1e2,1E+2,25e-1]", Array{5, 0.5, 5, 0.5, -1, 100, 100, 2.5}},
        {"[1-2,1+5,1.2.3,1e,1e+,1ee5,-1e999]", Array{1, 1, 1.2, 1, 1, 1, -infinity}},
        {"[1e-999,-1e-999,0.0e999,4.9e-324,2.2250738585072014e-308]",
         Array{0, 0, 0, 4.9e-324, 2.2250738585072014e-308}},
        {"[9007199254740993,9007199254740993.0,0.1,17976931348623157e292]",
         Array{9007199254740992.0, 9007199254740992.0, 0.1, 1.7976931348623157e308}},
        // Text.
        {R"(["","\n\r\t\b\f\"\/\\"])", Array{"", "\n\r\t\b\f\"/\\"}},
        {"[\"a\x01\x1F\x7F\", \"\0\"]"s, Array{"a\x01\x1F\x7F", "\0"s}},
        {R"(["\u00e9\u0041\u20AC\uD83D\uDE00"])", Array{"éA€😀"}},
        {R"(["\u0000"])", Array{"\0"s}},
        {R"(["\uD83D","\uDE00x","\uD83D\u0041"])", Array{"\xED\xA0\xBD", "\xED\xB8\x80x",
                                                         "\xED\xA0\xBD"
                                                         "A"}},
        {R"(["\uD83D\uD83D\uDE00"])", Array{"\xED\xA0\xBD😀"}},
        {"[\"é€😀 and a text that does not fit a handle €\"]",
         Array{"é€😀 and a text that does not fit a handle €"}},
        // Required: the scanner's leniency inside of the four characters.
        {R"(["\u0x1F","\u  41","\u4gzz","\u41"4"])", Array{"\x1F", "A", "\x04", "A"}},
        // Required: stray bytes read as their low seven bits, overlong forms and surrogates as
        // what they hold.
        {"[\"a\xA2\xAC\"b\xA2]", Array{"a", "b"}},
        {"[\"\xC1\x81\xE0\x81\x82 and more than a handle\"]", Array{"AB and more than a handle"}},
        {"[\"\xED\xA0\xBD\xED\xB8\x80\"]", Array{"😀"}},
        {"[\"\xED\xA0\xBD\"]", Array{"\xED\xA0\xBD"}},
        // Required: what the end cuts off ends its container quietly.
        {"[   ", Array()},
        {"{   ", Dictionary()},
        {"[123", Array()},
        {"[tru", Array()},
        {"[nul", Array()},
        {"[\"ab", Array()},
        {"[\"a\\", Array()},
        {"[\"\\u00", Array()},
        {"{\"ab", Dictionary()},
        {"{12.", Dictionary()},
        {"[\"a\xE2\x82", Array()},
        // Nothing at all.
        {"    ", Value()},
        {" \t\r\n\n ", Value()},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.document);
        const Outcome outcome = readAllWays(row.document);
        EXPECT_FALSE(outcome.error) << outcome.error.description();
        EXPECT_EQ(outcome.value, row.expected);
    }
}

TEST(MZJSONDeserializer, SaysWhatIsWrongAndWhere) {
    const std::string character = "Invalid character sequence";
    const std::string dictionary = "Invalid dictionary character sequence.";
    const std::string afterColon = "Invalid dictionary character sequence after colon.";
    const std::string number = "Invalid number character sequence.";
    const std::string text = "Unsupported character sequence";
    const std::string exhausted =
        "The JSON input stream is exhausted and won’t allow additional reads.";
    const struct {
        std::string document;
        int code;
        std::string description;
        std::string reason;
    } rows[] = {
        {"", -10002, exhausted, "The JSON input stream is exhausted."},
        {"{}", -10002, exhausted, "The JSON input stream is exhausted."},
        {"[1]", -10002, exhausted, "The JSON input stream is exhausted."},
        {"  x ", -10005, "Invalid JSON character sequence (x) at index 3", character},
        {"[1,€]", -10005, "Invalid JSON character sequence (€) at index 4", character},
        {"[\x1C 1]", -10005, "Invalid JSON character sequence (\x1C) at index 2", character},
        {"[\xE2\x80\x8B]", -10005, "Invalid JSON character sequence (\xE2\x80\x8B) at index 2",
         character},
        {"[\xF0\x9F\x98\x80]", -10005, "Invalid JSON character sequence (\xED\xA0\xBD) at index 2",
         character},
        {"[1 2]", -10006, "Invalid JSON character sequence in array (2) at index 4", character},
        {"[1;2]", -10006, "Invalid JSON character sequence in array (;) at index 3", character},
        {"[1,]", -10007,
         "Invalid JSON character sequence in array (,) at index 4. An additional object was "
         "expected.",
         "Invalid character sequence after comma"},
        {"[1,2", -10007,
         "Invalid JSON character sequence in array (,) at index 4. An additional object was "
         "expected.",
         "Invalid character sequence after comma"},
        {"{\"a\":}", -10007,
         "Invalid JSON character sequence in dictionary at index 6. A value was expected after the "
         "colon "
         "for key ‘a’.",
         afterColon},
        {"{1: ", -10007,
         "Invalid JSON character sequence in dictionary at index 4. A value was expected after the "
         "colon "
         "for key ‘1’.",
         afterColon},
        {"{\"a\":1,}", -10007,
         "Invalid JSON character sequence in dictionary (,) at index 8. A value was expected after "
         "the "
         "colon for key ‘’.",
         afterColon},
        {"{\"a\" 1}", -10008,
         "Invalid JSON character sequence while looking for colon in dictionary (1) at index 6",
         dictionary},
        {"{\"a\"}", -10008,
         "Invalid JSON character sequence while looking for colon in dictionary (}) at index 5",
         dictionary},
        {"{1:2 3:4}", -10009,
         "Invalid JSON character sequence while looking for the next entry or the end of the "
         "dictionary "
         "(3) at index 6",
         dictionary},
        {"[tRue]", -10010,
         "Invalid JSON character sequence while looking for the character in a boolean. (R) at "
         "index 3",
         "Invalid boolean character sequence."},
        {"[fals]", -10010,
         "Invalid JSON character sequence while looking for the character in a boolean. (]) at "
         "index 6",
         "Invalid boolean character sequence."},
        {"[nil]", -10011,
         "Invalid JSON character while looking for a character in a null sequence. (i) at index 3",
         "Invalid null character sequence"},
        {"[-  ]", -10011,
         "Invalid JSON number sequence while converting the input to a number. (-) at index 2",
         number},
        {"[.e5]", -10011,
         "Invalid JSON number sequence while converting the input to a number. (.e5) at index 4",
         number},
        {"[--1]", -10011,
         "Invalid JSON number sequence while converting the input to a number. (--1) at index 4",
         number},
        {"[1e999]", -10011,
         "Invalid JSON number sequence while converting the input to a number. (1e999) at index 6",
         number},
        {R"(["\x41"])", -10011,
         "An unsupported escape sequence was found in a string (x) at index 4", text},
        {R"(["\uZZZZ"])", -10012,
         "An unrecognized Unicode escape sequence was found in a string (ZZZZ) at index 8", text},
        {R"(["\u0xZZ"])", -10012,
         "An unrecognized Unicode escape sequence was found in a string (0xZZ) at index 8", text},
        {R"(["\u-123"])", -10012,
         "An unrecognized Unicode escape sequence was found in a string (-123) at index 8", text},
        {"  ] ", -10015, "Invalid JSON character sequence (]) at index 3 while not in an array.",
         character},
        {"{1:]}", -10015, "Invalid JSON character sequence (]) at index 4 while not in an array.",
         character},
        {"[1,}]", -10016,
         "Invalid JSON character sequence (}) at index 4 while not in a dictionary.", character},
        {"\"ab\"", -10017, "Invalid JSON string sequence (\") at index 1 while not in a container.",
         character},
        {"123 ", -10018, "Invalid JSON number sequence (1) at index 1 while not in a container.",
         character},
        {"-.5 ", -10018, "Invalid JSON number sequence (-) at index 1 while not in a container.",
         character},
        {"true", -10019, "Invalid JSON boolean sequence (t) at index 1 while not in a container.",
         character},
        {"null", -10020, "Invalid JSON null sequence (n) at index 1 while not in a container.",
         character},
        {"[[]] x", -10021, "Invalid spurious JSON character sequence (x) at index 6", character},
        {"[[]]]", -10021, "Invalid spurious JSON character sequence (]) at index 5", character},
        {"{} {}", -10021, "Invalid spurious JSON character sequence ({) at index 4", character},
        {"[\"a\xF8\x88\x80\x80\x80\"]", -10021,
         "Invalid spurious JSON character sequence (\") at index 4", character},
        {"[[]]\0"s, -10021, "Invalid spurious JSON character sequence (\0) at index 5"s, character},
        {"[[]]\xF4\x90\x80\x80", -10022, "Invalid JSON character 0x0 read at index 4", character},
        {"[12 ", -10023, "Unfinished JSON array at index 4", character},
        {"[[[[", -10023, "Unfinished JSON array at index 4", character},
        {"{1  ", -10024, "Unfinished JSON dictionary at index 4.", dictionary},
        {"{1:2 ", -10025, "Unterminated JSON dictionary at index 5", dictionary},
        {"[0123]", -10026,
         "Invalid JSON number sequence. Integers may not have a leading zero. (0123) at index 5",
         number},
        {"[0e1]", -10026,
         "Invalid JSON number sequence. Integers may not have a leading zero. (0e1) at index 4",
         number},
        {"[\"a\tb\"]", -10027, "An illegal character was found in a string (\t) at index 4", text},
        {"[\"a\nb\"]", -10027, "An illegal character was found in a string (\n) at index 4", text},
        {"[\"a\rb\"]", -10027, "An illegal character was found in a string (\r) at index 4", text},
        // Of the reader of characters.
        {"[\"\xC3(\"]", -10001, "The second byte of the UTF-8 character sequence is invalid.",
         "The second byte of the UTF-8 character sequence is invalid."},
        {"[\"\xFF\"]", -10010,
         "The UTF-8 character sequence indicates more bytes than UTF-8 supports.",
         "Invalid UTF-8 character sequence"},
        {"[[]]\xE2\x82(", -10002, "The third byte of the UTF-8 character sequence is invalid.",
         "The third byte of the UTF-8 character sequence is invalid."},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.document);
        const Outcome outcome = readAllWays(row.document);
        EXPECT_TRUE(outcome.value.isNone()) << outcome.value.description();
        EXPECT_EQ(outcome.error.domain(), "MZJSONSerlizationErrorDomain");
        EXPECT_EQ(outcome.error.code(), row.code);
        EXPECT_EQ(outcome.error.localizedDescription(), row.description);
        EXPECT_EQ(outcome.error.localizedFailureReason(), row.reason);
    }
}

TEST(MZJSONDeserializer, LeavesTheErrorAloneOnSuccess) {
    Error error("D", 1);
    EXPECT_TRUE(
        MZJSONDeserializer::deserializer()->deserializeJSONData(Data("[[]]"), &error).isArray());
    EXPECT_EQ(error.code(), 1);
    EXPECT_TRUE(MZJSONDeserializer().deserializeJSONData(Data("[x,1]")).isNone());
}

TEST(MZJSONDeserializer, TellsTheEncodingByTheFirstBytes) {
    const std::string text = "{\"key é\":[1,\"€😀\",null]} ";
    const Value expected = Dictionary{{"key é", Array{1, "€😀", Null{}}}};
    const struct {
        TextEncoding encoding;
        std::string mark;
    } rows[] = {
        {TextEncoding::utf8, "\xEF\xBB\xBF"},
        {TextEncoding::utf16LittleEndian, "\xFF\xFE"},
        {TextEncoding::utf16BigEndian, "\xFE\xFF"},
        {TextEncoding::utf32LittleEndian, "\xFF\xFE\0\0"s},
        {TextEncoding::utf32BigEndian, "\0\0\xFE\xFF"s},
    };
    for (const auto& row : rows) {
        for (const std::string& mark : {std::string(), row.mark}) {
            SCOPED_TRACE(static_cast<std::uint32_t>(row.encoding));
            const std::string document = mark + encodeText(text, row.encoding).value();
            EXPECT_EQ(readAllWays(document).value, expected);
            MZJSONDeserializer deserializer;
            EXPECT_EQ(deserializer.encoding(), TextEncoding::utf8);
            EXPECT_EQ(deserializer.deserializeJSONData(Data(document)), expected);
            EXPECT_EQ(deserializer.encoding(), row.encoding);
        }
    }
}

TEST(MZJSONDeserializer, ReadsLongTextsAlikeAllWays) {
    const struct {
        std::string written;
        std::string read;
    } rows[] = {{"x", "x"},   {"é", "é"},    {"電", "電"},
                {"😀", "😀"}, {"\\n", "\n"}, {"\\u20ac", "€"}};
    for (const auto& row : rows) {
        // About the size at which the reader's buffer grows, and beyond.
        for (std::size_t count : {680U, 681U, 682U, 683U, 1022U, 1023U, 1024U, 2043U, 2044U, 2045U,
                                  2046U, 2047U, 2048U, 9000U}) {
            SCOPED_TRACE(row.written + " " + std::to_string(count));
            std::string document = "[\"";
            std::string expected;
            for (; count != 0; --count) {
                document += row.written;
                expected += row.read;
            }
            EXPECT_EQ(readAllWays(document + "\"]").value, (Array{expected}));
        }
    }
}

TEST(MZJSONDeserializer, PassesTheStreamsErrorsOn) {
    const std::string document = "[" + std::string(20000, ' ') + "1]";
    for (const std::size_t bytes : {0U, 3U, 4U, 10000U}) {
        SCOPED_TRACE(bytes);
        const Outcome outcome = readStream(document, {.failAfter = bytes});
        EXPECT_TRUE(outcome.value.isNone());
        EXPECT_EQ(outcome.error.domain(), "ChunkedStream");
    }
    // Empty reads: 1001 in a row are too many before the encoding is known, and after.
    const auto emptyReads = [](std::size_t first, std::size_t count) {
        std::vector<std::size_t> sizes(count + 1, 0);
        sizes.front() = first;
        return velto::testing::Chunks{.sizes = std::move(sizes)};
    };
    EXPECT_EQ(readStream("[1  ]", emptyReads(2, 1000)).value, (Array{1}));
    EXPECT_EQ(readStream("[1  ]", emptyReads(2, 1001)).error.code(), -10002);
    EXPECT_EQ(readStream("[1  ]", emptyReads(4, 1001)).error.code(), -100014);
}

TEST(MZJSONDeserializer, ReadsOneValueOrKindAtATime) {
    const auto stream = [](std::string_view text) {
        auto result = InputStream::withData(Data(text));
        result->open();
        return result;
    };
    MZJSONDeserializer deserializer;
    Error error;
    MZStringStreamReader values(TextEncoding::utf8, stream(" 1 \"a\" ] } [2] x"));
    EXPECT_EQ(deserializer.deserializeJSONStringReader(values, Array(), &error), 1);
    EXPECT_EQ(deserializer.deserializeJSONStringReader(values, Dictionary(), &error), "a");
    EXPECT_TRUE(deserializer.deserializeJSONStringReader(values, Array(), &error).isNone());
    EXPECT_TRUE(deserializer.deserializeJSONStringReader(values, Dictionary(), &error).isNone());
    EXPECT_FALSE(error);
    EXPECT_EQ(deserializer.deserializeJSONStringReader(values, Value(), &error), (Array{2}));
    EXPECT_TRUE(deserializer.deserializeJSONStringReader(values, Value(), &error).isNone());
    EXPECT_EQ(error.code(), -10005);

    MZStringStreamReader kinds(TextEncoding::utf8,
                               stream(R"(1,[2]]"a":1}text"5e1;rue|alse|ull|xx)"));
    char16_t character = 0;
    const auto skip = [&] { return kinds.getNextCharacter(character) ? character : u'!'; };
    EXPECT_EQ(deserializer.deserializeJSONArrayWithStringReader(kinds), (Array{1, Array{2}}));
    EXPECT_EQ(deserializer.deserializeJSONDictionaryWithStringReader(kinds),
              (Dictionary{{"a", 1}}));
    EXPECT_EQ(deserializer.deserializeJSONStringWithStringReader(kinds), "text");
    EXPECT_EQ(deserializer.deserializeJSONNumberWithStringReader(kinds, u'+'), 50);
    EXPECT_EQ(skip(), u';');
    EXPECT_EQ(deserializer.deserializeJSONBooleanWithStringReader(kinds, u't'), true);
    EXPECT_EQ(skip(), u'|');
    EXPECT_EQ(deserializer.deserializeJSONBooleanWithStringReader(kinds, u'f'), false);
    EXPECT_EQ(skip(), u'|');
    EXPECT_TRUE(deserializer.deserializeJSONNullWithStringReader(kinds).isNull());
    EXPECT_EQ(skip(), u'|');
    EXPECT_TRUE(deserializer.deserializeJSONNullWithStringReader(kinds, &error).isNone());
    EXPECT_EQ(error.code(), -10011);
}

TEST(MZJSONDeserializer, TheWhiteSpaceIsThatOfUnicode) {
    const std::u16string blanks =
        u"\t\n\v\f\r \u0085\u00A0\u1680\u2000\u2005\u200A\u2028\u2029\u202F\u205F\u3000";
    for (unsigned unit = 0; unit < 0x10000; ++unit) {
        const auto character = static_cast<char16_t>(unit);
        const bool expected =
            blanks.find(character) != blanks.npos || (character >= 0x2000 && character <= 0x200A);
        ASSERT_EQ(IsWhitespaceCharacter(character), expected) << unit;
    }
}

/// Arrays, dictionaries and dictionaries as keys in turn.
std::string nestedDocument(std::size_t depth) {
    std::string document;
    for (std::size_t i = 0; i < depth; ++i) {
        document += i % 3 == 0 ? "[" : i % 3 == 1 ? "{1:" : "{";
    }
    document += "2";
    for (std::size_t i = depth; i-- > 0;) {
        document += i % 3 == 0 ? "]" : i % 3 == 1 ? "}" : ":3}";
    }
    return document;
}

TEST(MZJSONDeserializer, AnyDepthNeedsNoStack) {
    constexpr std::size_t depth = 1'000'000;
    velto::testing::onSmallStack([] {
        const std::string brackets = std::string(depth, '[') + std::string(depth, ']');
        for (const std::string& document : {brackets, nestedDocument(depth)}) {
            const Outcome fast = readData(document);
            const Outcome plain = readPlainly(document);
            EXPECT_FALSE(fast.error || plain.error);
            EXPECT_TRUE(fast.value == plain.value);
            const auto written = MZJSONSerializer::serializer().serializeToJSON(fast.value);
            EXPECT_TRUE(written && written->view() == document);
            Array changed = fast.value.array();
            changed.append(plain.value);
        }
        EXPECT_EQ(readData(std::string(depth, '[')).error.code(), -10023);
        EXPECT_EQ(readData(std::string(depth, '{')).error.code(), -10024);
        EXPECT_EQ(readData(brackets + "]").error.code(), -10021);
    });
}

std::size_t bytesInUse() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

TEST(MZJSONDeserializer, ATreeTakesLittleMemory) {
    if (bytesInUse() == 0) {
        GTEST_SKIP() << "a sanitizer's allocator does not tell";
    }
    std::string document = "[";
    for (int i = 0; i < 10'000; ++i) {
        document +=
            R"({"id": )" + std::to_string(505'874'924'095'815'000 + i) +
            R"(, "name": "a name", "text": "A text of some forty characters, as it may be",)"
            R"( "place": [-65.613616999999977, 43.420273000000009], "seen": true},)";
    }
    document.back() = ']';
    for (const bool isStream : {false, true}) {
        const std::size_t before = bytesInUse();
        const Outcome outcome = isStream ? readStream(document) : readData(document);
        EXPECT_EQ(outcome.value.array().size(), 10'000U);
        EXPECT_LT(bytesInUse() - before, 2 * document.size());
    }
}

/// Documents of every kind of value and spelling, valid ones.
class DocumentWriter {
public:
    explicit DocumentWriter(std::mt19937_64& random) : random_(random) {}

    std::string write() {
        text_.clear();
        container(3);
        blanks();
        return std::move(text_);
    }

private:
    std::size_t pick(std::size_t count) { return random_() % count; }

    void blanks() {
        static constexpr std::string_view kinds[] = {
            "", "", "", "", " ", "\n", "\r\n\t", "\n                        ", "\v", "\xC2\xA0"};
        text_ += kinds[pick(pick(8) == 0 ? std::size(kinds) : 7)];
    }

    void container(std::size_t depth) {
        const bool isArray = pick(2) == 0;
        text_ += isArray ? '[' : '{';
        const std::size_t count = pick(4) == 0 ? pick(40) : pick(6);
        for (std::size_t i = 0; i < count; ++i) {
            text_ += i == 0 ? "" : ",";
            if (!isArray) {
                blanks();
                if (pick(8) == 0) {
                    value(0);
                } else if (pick(3) == 0) {
                    string();
                } else {
                    text_ += "\"some longer key number " + std::to_string(pick(30)) + "\"";
                }
                blanks();
                text_ += ':';
            }
            blanks();
            value(depth);
            blanks();
        }
        text_ += isArray ? ']' : '}';
    }

    void value(std::size_t depth) {
        static constexpr std::string_view literals[] = {"true", "false", "null"};
        const std::size_t kind = pick(depth == 0 ? 7 : 10);
        if (kind < 3) {
            number();
        } else if (kind < 6) {
            string();
        } else if (kind < 7) {
            text_ += literals[pick(3)];
        } else {
            container(depth - 1);
        }
    }

    void digits(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            text_ += static_cast<char>('0' + pick(10));
        }
    }

    void number() {
        text_ += pick(3) == 0 ? "-" : "";
        const std::size_t whole = pick(4) == 0 ? pick(25) : pick(3);
        if (whole == 0) {
            text_ += '0';
        } else {
            text_ += static_cast<char>('1' + pick(9));
            digits(whole - 1);
        }
        if (pick(2) == 0) {
            text_ += '.';
            digits(pick(20));
        } else if (whole == 0) {
            return;
        }
        if (pick(5) == 0) {
            static constexpr std::string_view signs[] = {"e", "E+", "e-"};
            const std::size_t sign = pick(3);
            text_ += signs[sign];
            text_ += std::to_string(pick(pick(4) != 0 ? 30 : sign == 2 ? 400 : 280));
        }
    }

    void string() {
        static constexpr std::string_view pieces[] = {
            "a",    "b c",     "0123456789",     "é",       "€",       "😀",  "\x01", "\\n", "\\\"",
            "\\\\", "\\u00e9", "\\ud83d\\ude00", "\\ud83d", "\\uDE00", "\\/",
        };
        text_ += '"';
        for (std::size_t i = pick(pick(4) == 0 ? 30 : 6); i > 0; --i) {
            text_ += pieces[pick(pick(2) == 0 ? 3 : std::size(pieces))];
        }
        text_ += '"';
    }

    std::mt19937_64& random_;
    std::string text_;
};

void mutate(std::string& document, std::mt19937_64& random) {
    static constexpr std::string_view oddities =
        "[]{}\",:\\ \n\t0123456789.eE+-tfnu\0\x1C\x80\xA2"
        "\xC2\xE2\xED\xF0\xFF\xD8\xDC";
    for (std::size_t change = 1 + random() % 3; change > 0 && !document.empty(); --change) {
        const std::size_t at = random() % document.size();
        switch (random() % 4) {
            case 0:
                document.resize(at);
                break;
            case 1:
                document.erase(at, 1 + random() % 4);
                break;
            case 2:
                document.insert(at, 1, oddities[random() % oddities.size()]);
                break;
            default:
                document[at] = oddities[random() % oddities.size()];
                break;
        }
    }
}

TEST(MZJSONDeserializer, AllWaysAgreeOnRandomAndMutatedDocuments) {
    static constexpr TextEncoding encodings[] = {
        TextEncoding::utf8,
        TextEncoding::utf8,
        TextEncoding::utf16LittleEndian,
        TextEncoding::utf16BigEndian,
        TextEncoding::utf32LittleEndian,
        TextEncoding::utf32BigEndian,
    };
    std::mt19937_64 random(velto::testing::randomSeed());
    DocumentWriter writer(random);
    for (int round = 0; round < 1500 && !::testing::Test::HasFailure(); ++round) {
        std::string document =
            encodeText(writer.write(), encodings[random() % std::size(encodings)]).value_or("");
        if (document.size() >= 4) {
            EXPECT_FALSE(readAllWays(document).error) << document;
        }
        mutate(document, random);
        readAllWays(document);
    }
}

/// Also on what comes first, a fault of the document or of the stream.
TEST(MZJSONDeserializer, AllWaysAgreeOnLongDocumentsOfBrokenStreams) {
    std::mt19937_64 random(velto::testing::randomSeed());
    DocumentWriter writer(random);
    for (int round = 0; round < 60 && !::testing::Test::HasFailure(); ++round) {
        std::string document = "[";
        const std::size_t size = 20'000 + random() % 200'000;
        while (document.size() < size) {
            document += writer.write() + ',';
            if (random() % 200 == 0) {
                document += '"' + std::string(random() % 150'000, 'x') + "\",";
            }
        }
        document += "0]";
        if (random() % 2 == 0) {
            const bool isWide = random() % 2 == 0;
            document = encodeText(document, isWide ? TextEncoding::utf32LittleEndian
                                                   : TextEncoding::utf16BigEndian)
                           .value_or("");
        }
        if (random() % 3 != 0) {
            std::string part = document.substr(document.size() / 2, 9000);
            mutate(part, random);
            document.replace(document.size() / 2, 9000, part);
        }
        const velto::testing::Chunks chunks{
            .sizes = {1 + random() % 9000, random() % 9000},
            .failAfter = random() % 3 == 0 ? velto::testing::Chunks::never
                                           : document.size() / 2 + random() % 20'000,
            .endShowsEarly = random() % 2 == 0};
        expectAlike("a long document", readStream(document, chunks), readPlainly(document, chunks));
    }
}

/// The fast way's quotients beside the plain way's conversion, in the range where they differ in
/// method.
TEST(MZJSONDeserializer, DecimalsAreRoundedAlikeAllWays) {
    std::mt19937_64 random(velto::testing::randomSeed());
    std::string document = "[0";
    for (int i = 0; i < 200'000; ++i) {
        std::string digits = std::to_string(random() >> (random() % 14));
        digits.resize(std::min<std::size_t>(digits.size(), 19));
        if (i % 4 == 0) {
            // Near the middle between two doubles.
            digits =
                std::to_string(((std::uint64_t{1} << 53) + random() % 1'000'000) * 2 + 1) + "00";
        }
        digits.insert(random() % digits.size(), 1, '.');
        document += "," + digits;
    }
    document += "]";
    EXPECT_EQ(readAllWays(document).value.array().size(), 200'001U);
}

}  // namespace
