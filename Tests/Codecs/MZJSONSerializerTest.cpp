#include <Tests/Support/ChunkedStream.h>
#include <Tests/Support/RandomSeed.h>
#include <VeltoConnectFoundation/Codecs/MZJSONDeserializer.h>
#include <VeltoConnectFoundation/Codecs/MZJSONSerializer.h>
#include <VeltoConnectFoundation/Codecs/MZStringStreamReader.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <bit>
#include <charconv>
#include <cmath>
#include <iterator>
#include <limits>
#include <string>

namespace {

using namespace std::string_literals;
using velto::Array;
using velto::Date;
using velto::Dictionary;
using velto::Error;
using velto::Null;
using velto::TextEncoding;
using velto::Value;
using velto::testing::ChunkedInputStream;
using velto::testing::ChunkedOutputStream;
using velto::testing::Chunks;

std::string written(const Value& value, TextEncoding encoding = TextEncoding::utf8) {
    MZJSONSerializer serializer = MZJSONSerializer::serializer();
    serializer.setEncoding(encoding);
    Error error;
    const auto data = serializer.serializeToJSON(value, &error);
    return data ? std::string(data->view()) : error.localizedDescription();
}

class Peculiar final : public velto::Object {
public:
    std::string_view className() const override { return "Peculiar"; }
};

TEST(MZJSONSerializer, WritesEachKind) {
    constexpr auto longest = std::numeric_limits<std::int64_t>::min();
    struct Row {
        Value value;
        std::string text;
    };
    const Row rows[] = {
        {Dictionary{}, "{}"},
        {Array{}, "[]"},
        {Null{}, "null"},
        {Array{true, false, 1, 0}, "[true,false,1,0]"},
        {Array{longest, std::numeric_limits<std::uint64_t>::max()},
         "[-9223372036854775808,18446744073709551615]"},
        {Array{0.1, 1.0 / 3, 1e300, -0.0, 5.0}, "[0.1,0.3333333333333333,1e+300,-0,5]"},
        {Array{0.1F, 16777216.0F}, "[0.1,1.6777216e+07]"},
        {"a/b\\c\"d", R"("a\/b\\c\"d")"},
        {"\b\t\n\f\r\v\x1F\x7F", R"("\b\t\n\f\r\u000b\u001f)"s + "\x7F\""},
        {std::string_view("\0", 1), R"("\u0000")"},
        {"é€", "\"é€\""},
        // Required: a pair of surrogates is two characters of three bytes each.
        {"😀", "\"\xED\xA0\xBD\xED\xB8\x80\""},
        {"\xED\xA0\x80", "\"\xED\xA0\x80\""},
        // Nothing that a reader would take for a quotation mark gets through.
        {"a\xA2\xF0\x9F\xC3", "\"a\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\""},
        {Date{0}, R"("2001-01-01T00:00:00.000Z")"},
        {Dictionary{{"z", 1}, {"a", Array{Null{}, Dictionary{{"b", "c"}}}}, {7, false}},
         R"({"z":1,"a":[null,{"b":"c"}],7:false})"},
        {Dictionary{{Array{1, Dictionary{}}, Dictionary{{Null{}, Array{}}}}}, "{[1,{}]:{null:[]}}"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(written(row.value), row.text);
    }
    EXPECT_EQ(written(Array{"aé/\n😀", 1}, TextEncoding::utf16LittleEndian),
              "[\0\"\0a\0\xE9\0\\\0/\0\\\0n\0\x3D\xD8\x00\xDE\"\0,\0001\0]\0"s);
    EXPECT_EQ(written(Array{"é", true}, TextEncoding::utf16BigEndian),
              "\0[\0\"\0\xE9\0\"\0,\0t\0r\0u\0e\0]"s);
    EXPECT_EQ(written(Array{"é/", 2}, TextEncoding::isoLatin1), "[\"\xE9\\/\",2]");
    EXPECT_EQ(written("z", TextEncoding::utf32BigEndian), "\0\0\0\"\0\0\0z\0\0\0\""s);
    // Required: a character that the encoding has no form for is left out.
    EXPECT_EQ(written("a€b", TextEncoding::ascii), "\"ab\"");
}

TEST(MZJSONSerializer, TheOperationsOfEachKindWriteTheSame) {
    ChunkedOutputStream stream;
    const MZJSONSerializer serializer;
    EXPECT_FALSE(serializer.serializeNullToJSON(stream));
    EXPECT_FALSE(serializer.serializeStringToJSON("s", stream));
    EXPECT_FALSE(serializer.serializeArrayToJSON(Array{1}, stream));
    EXPECT_FALSE(serializer.serializeDictionaryToJSON(Dictionary{{"k", 2}}, stream));
    EXPECT_FALSE(serializer.serializeNumberToJSON(0.5, stream));
    EXPECT_FALSE(serializer.serializeDateToJSON(Date{0.25}, stream));
    EXPECT_EQ(stream.written(), R"(null"s"[1]{"k":2}0.5"2001-01-01T00:00:00.250Z")");
}

TEST(MZJSONSerializer, WhatCannotBeWrittenFailsBehindWhatCould) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    constexpr double noNumber = std::numeric_limits<double>::quiet_NaN();
    struct Row {
        Value value;
        std::int64_t code;
        const char* text;
        const char* reason;
    };
    const Row rows[] = {
        {noNumber, -10002, "Invalid number value (NaN) cannot be written to a JSON stream.",
         "Invalid number"},
        {static_cast<float>(noNumber), -10002,
         "Invalid number value (NaN) cannot be written to a JSON stream.", "Invalid number"},
        {infinity, -10003, "Invalid number value (infinite) cannot be written to a JSON stream.",
         "Invalid number"},
        {-infinity, -10003, "Invalid number value (infinite) cannot be written to a JSON stream.",
         "Invalid number"},
        {Value(std::make_shared<const Peculiar>()), -10001,
         "This class cannot be encoded into JSON: Peculiar", "Illegal class for serialization"},
        {velto::Data("x", 1), -10001, "This class cannot be encoded into JSON: Data",
         "Illegal class for serialization"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        const Value value = Dictionary{{"a", Array{1, row.value, 2}}};
        const MZJSONSerializer serializer;
        Error error;
        EXPECT_FALSE(serializer.serializeToJSON(value, &error).has_value());
        EXPECT_EQ(error.domain(), MZJSONSerlizationErrorDomain);
        EXPECT_EQ(error.code(), row.code);
        EXPECT_EQ(error.localizedDescription(), row.text);
        EXPECT_EQ(error.localizedFailureReason(), row.reason);
        ChunkedOutputStream stream;
        EXPECT_EQ(serializer.serializeToJSON(value, stream).code(), row.code);
        EXPECT_EQ(stream.written(), R"({"a":[1,)");
        // A failure of the stream came before it.
        ChunkedOutputStream broken(Chunks{{3}, 5});
        EXPECT_EQ(serializer.serializeToJSON(value, broken).code(), -1);
        EXPECT_EQ(broken.written(), R"({"a":)");
    }
}

TEST(MZJSONSerializer, AStreamsFailureEndsTheOutput) {
    const MZJSONSerializer serializer;
    const Value value = Array{std::string(20000, 'x'), std::string(20000, 'y')};
    ChunkedOutputStream broken(Chunks{{1000}, 30000});
    EXPECT_EQ(serializer.serializeToJSON(value, broken).localizedDescription(),
              "The stream broke.");
    EXPECT_EQ(broken.written(), written(value).substr(0, 30000));
    EXPECT_EQ(broken.failures(), 1U);

    ChunkedOutputStream full(Chunks{{0}});
    const Error error = serializer.serializeToJSON(value, full);
    EXPECT_EQ(error.domain(), MZJSONSerlizationErrorDomain);
    EXPECT_EQ(error.code(), -10000);
    EXPECT_EQ(error.localizedDescription(),
              "The output stream is exhausted and won’t allow additional writes.");
    EXPECT_EQ(error.localizedFailureReason(), "Output stream exhausted");
    EXPECT_EQ(full.calls(), 1001U);

    std::vector<std::size_t> sizes(1000, 0);
    sizes.push_back(7);
    ChunkedOutputStream slow(Chunks{sizes});
    EXPECT_FALSE(serializer.serializeToJSON(Array{"some", "text"}, slow));
    EXPECT_EQ(slow.written(), R"(["some","text"])");
}

class RandomTree {
public:
    explicit RandomTree(std::mt19937_64& random) : random_(random) {}

    Value value(int depth) {
        switch (random_() % (depth > 0 ? 9U : 7U)) {
            case 0:
                return Null{};
            case 1:
                return random_() % 2 == 0;
            case 2:
                return static_cast<std::int64_t>(random_());
            case 3:
                return random_();
            case 4: {
                const auto number = std::bit_cast<double>(random_());
                return std::fabs(number) < 1e308 ? number : 0.5;
            }
            case 5:
            case 6:
                return text();
            case 7: {
                Array array;
                for (std::uint64_t i = random_() % 6; i > 0; --i) {
                    array.append(value(depth - 1));
                }
                return array;
            }
            default: {
                Dictionary dictionary;
                for (std::uint64_t i = random_() % 6; i > 0; --i) {
                    dictionary.set(text(), value(depth - 1));
                }
                return dictionary;
            }
        }
    }

    std::string text() {
        std::u16string units;
        for (std::uint64_t i = random_() % 4 == 0 ? random_() % 50 : random_() % 10; i > 0; --i) {
            // No halves of pairs: other readers refuse them.
            const auto kind = random_() % 8;
            units += static_cast<char16_t>(kind < 5    ? 0x20 + random_() % 0x5F
                                           : kind == 5 ? random_() % 0x80
                                           : kind == 6 ? 0x80 + random_() % 0x780
                                                       : 0x800 + random_() % 0xD000);
        }
        return velto::utf8FromUTF16(units);
    }

private:
    std::mt19937_64& random_;
};

/// What sixteen digits of a number read back as.
double roundTrip(const Value& number) {
    char text[64];
    auto* const end = std::to_chars(std::begin(text), std::end(text), number.doubleValue(),
                                    std::chars_format::general, 16)
                          .ptr;
    double result = 0;
    std::from_chars(text, end, result);
    return result;
}

/// Whether reading has brought what was written, to the last bit, and what another reader makes of
/// it; `count` grows by the number of values.
bool isReadBack(const Value& value,
                const Value& read,
                const nlohmann::json& other,
                std::size_t& count) {
    ++count;
    switch (value.kind()) {
        case velto::ValueKind::null:
            return read.isNull() && other.is_null();
        case velto::ValueKind::boolean:
            return read.kind() == value.kind() && read == value && other == value.boolValue();
        case velto::ValueKind::signedInteger:
        case velto::ValueKind::unsignedInteger:
            return read.kind() == velto::ValueKind::doubleFloat &&
                   read.doubleValue() == value.doubleValue() &&
                   other.get<double>() == read.doubleValue();
        case velto::ValueKind::doubleFloat:
            return read.doubleValue() == roundTrip(value) &&
                   other.get<double>() == read.doubleValue();
        case velto::ValueKind::string:
            return read.isString() && read == value &&
                   other.get_ref<const std::string&>() == value.string();
        case velto::ValueKind::array: {
            const Array values = value.array();
            const Array reads = read.array();
            bool same =
                read.isArray() && reads.size() == values.size() && other.size() == values.size();
            for (std::size_t i = 0; same && i < values.size(); ++i) {
                same = isReadBack(values[i], reads[i], other[i], count);
            }
            return same;
        }
        default: {
            const Dictionary values = value.dictionary();
            const Dictionary reads = read.dictionary();
            bool same = read.isDictionary() && reads.size() == values.size() &&
                        other.size() == values.size();
            for (std::size_t i = 0; same && i < values.size(); ++i) {
                const auto& entry = values.begin()[i];
                same = reads.begin()[i].key == entry.key &&
                       isReadBack(entry.value, reads.begin()[i].value,
                                  other.at(std::string(entry.key.string())), count);
            }
            return same;
        }
    }
}

/// Documents of several blocks, whose borders fall anywhere.
TEST(MZJSONSerializer, AMillionValuesAreReadBack) {
    static constexpr TextEncoding encodings[] = {TextEncoding::utf8, TextEncoding::utf16BigEndian,
                                                 TextEncoding::utf16LittleEndian};
    std::mt19937_64 random(velto::testing::randomSeed());
    RandomTree trees(random);
    std::size_t count = 0;
    while (count < 1'000'000) {
        Array array;
        for (std::uint64_t i = random() % 4000; i > 0; --i) {
            array.append(trees.value(3));
        }
        const std::string text = std::string(4 + random() % 9000, ' ') + written(array);
        const auto other = nlohmann::json::parse(text);
        const Value fromMemory = MZJSONDeserializer().deserializeJSONData(velto::Data(text));
        ASSERT_TRUE(isReadBack(array, fromMemory, other, count));

        const TextEncoding encoding = encodings[random() % 3];
        const auto stream = std::make_shared<ChunkedInputStream>(
            written(Array{array, Null{}}, encoding),
            Chunks{{1 + random() % 9000, random() % 3, 1 + random() % 9000}});
        Error error;
        const Value byStream = MZJSONDeserializer().deserializeJSONStream(stream, &error);
        ASSERT_FALSE(error) << error.description();
        ASSERT_EQ(byStream[0], fromMemory);
        // Numbers have become doubles; from then on the text stays.
        const std::string again = written(fromMemory);
        ASSERT_EQ(written(MZJSONDeserializer().deserializeJSONData(velto::Data(again + "  "))),
                  again);
    }
}

TEST(MZJSONSerializer, AnyBytesInAStringGoOutAsItsUnits) {
    std::mt19937_64 random(velto::testing::randomSeed());
    for (int round = 0; round < 20000; ++round) {
        std::string text(random() % 40, '\0');
        const bool wild = random() % 2 == 0;
        for (char& byte : text) {
            byte = static_cast<char>(wild || random() % 8 == 0 ? random() % 256
                                                               : 0x20 + random() % 0x60);
        }
        if (round % 50 == 0) {
            // A long text is written by slices, none of which may end inside a character.
            static const char* const pieces[] = {"a",   "é", "電", "😀", "\"", "\xED\xA0\xBD",
                                                 "\x80"};
            while (text.size() < 3000) {
                text += pieces[random() % std::size(pieces)];
            }
        }
        std::string expected = "\"";
        for (const char16_t unit : velto::utf16FromUTF8(text)) {
            static const std::string_view escaped = "\\/\"\b\t\n\f\r";
            static const std::string_view letters = "\\/\"btnfr";
            const std::size_t at =
                unit < 0x80 ? escaped.find(static_cast<char>(unit)) : std::string_view::npos;
            if (at != std::string_view::npos) {
                expected += {'\\', letters[at]};
            } else if (unit < 0x20) {
                char code[7];
                std::snprintf(code, sizeof(code), "\\u%04x", unsigned{unit});
                expected += code;
            } else {
                expected += velto::utf8FromUTF16({&unit, 1});
            }
        }
        ASSERT_TRUE(written(text) == expected + "\"") << ::testing::PrintToString(text);
    }
}

}  // namespace
