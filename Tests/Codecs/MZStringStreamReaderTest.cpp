#include <Tests/Support/ChunkedStream.h>
#include <Tests/Support/RandomSeed.h>
#include <VeltoConnectFoundation/Codecs/MZStringStreamReader.h>

#include <gtest/gtest.h>

#include <ranges>
#include <string>

namespace {

using namespace std::string_literals;
using velto::Error;
using velto::TextEncoding;
using velto::testing::ChunkedInputStream;
using velto::testing::Chunks;

/// What a reader gives until it stops, and how it stopped.
struct Outcome {
    std::u16string units;
    std::size_t nothings = 0;  ///< Bytes that stood for no character.
    std::int64_t code = 0;
    std::string text;
    bool atEnd = false;
    std::size_t position = 0;

    friend bool operator==(const Outcome&, const Outcome&) = default;
};

void PrintTo(const Outcome& outcome, std::ostream* out) {
    *out << ::testing::PrintToString(outcome.units) << ", " << outcome.nothings << " nothings, "
         << outcome.code << ' ' << outcome.text << (outcome.atEnd ? ", at end" : "");
}

Outcome readAll(MZStringStreamReader& reader) {
    Outcome outcome;
    char16_t unit = 0;
    for (;;) {
        Error error = Error("left over", 1);
        if (reader.getNextCharacter(unit, &error)) {
            outcome.units += unit;
        } else if (error || reader.isAtEnd()) {
            outcome.code = error.code();
            outcome.text = error ? error.localizedDescription() : "";
            outcome.atEnd = reader.isAtEnd();
            outcome.position = reader.position();
            return outcome;
        } else {
            ++outcome.nothings;
        }
    }
}

Outcome readAll(TextEncoding encoding, const std::string& bytes, Chunks chunks = {}) {
    MZStringStreamReader reader(encoding,
                                std::make_shared<ChunkedInputStream>(bytes, std::move(chunks)));
    return readAll(reader);
}

TEST(MZStringStreamReader, ReadsUnitsAndStopsAsStated) {
    constexpr auto utf8 = TextEncoding::utf8;
    constexpr const char* second = "The second byte of the UTF-8 character sequence is invalid.";
    struct Row {
        TextEncoding encoding;
        std::string bytes;
        std::u16string units;
        std::size_t nothings = 0;
        std::int64_t code = 0;
        const char* text = "";
    };
    const Row rows[] = {
        {utf8, "", u""},
        {utf8, "abc", u"abc"},
        {utf8, "\xC3\xA9\xE2\x82\xAC", u"é€"},
        // Required: stray continuation bytes read as ASCII.
        {utf8, "\x80\xBF\xA2", u"\0?\""s},
        {utf8, "\xC0\x80", u"\0"s},
        {utf8, "\xED\xA0\x80", {0xD800}},
        {utf8, "\xF0\x9F\x98\x80!", u"😀!"},
        // A sequence that is cut short is a quiet end.
        {utf8, "a\xC3", u"a"},
        {utf8, "a\xE2\x82", u"a"},
        {utf8, "a\xFD\xBF\xBF", u"a"},
        // Well-formed bytes of no character are nothing, and reading goes on.
        {utf8, "\xF0\x80\x80\x80z", u"z", 1},
        {utf8, "\xF4\x90\x80\x80z", u"z", 1},
        {utf8, "\xF7\xBF\xBF\xBFz", u"z", 1},
        {utf8, "\xF8\x88\x80\x80\x80z", u"z", 1},
        {utf8, "\xFC\x84\x80\x80\x80\x80z", u"z", 1},
        {utf8, "a\xC3(", u"a", 0, -10001, second},
        {utf8, "\xE2(\xA1", u"", 0, -10001, second},
        {utf8, "\xE2\x82(", u"", 0, -10002,
         "The third byte of the UTF-8 character sequence is invalid."},
        {utf8, "\xF0\x9F\x98(", u"", 0, -10001, second},
        {utf8, "a\xFE", u"a", 0, -10010,
         "The UTF-8 character sequence indicates more bytes than UTF-8 supports."},
        {utf8, "\xFF", u"", 0, -10010,
         "The UTF-8 character sequence indicates more bytes than UTF-8 supports."},
        {TextEncoding::utf16BigEndian, "\0a\xD8\x3D\xDE\x00"s, u"a😀"},
        {TextEncoding::utf16LittleEndian, "a\0\x3D\xD8\x00\xDE"s, u"a😀"},
        {TextEncoding::utf16LittleEndian, "\x00\xDE"s, {0xDE00}},
        {TextEncoding::utf16BigEndian, "\0ab"s, u"a\u6200"},
        {TextEncoding::utf16LittleEndian, "a\0b"s, u"ab"},
        {TextEncoding::utf32BigEndian, "\0\0\0a\0\1\xF6\0\0\0\0z"s, u"a😀z"},
        {TextEncoding::utf32LittleEndian, "a\0\0\0\0\xF6\1\0z\0\0\0"s, u"a😀z"},
        {TextEncoding::utf32BigEndian, "\0\x11\0\0\0\0\0z"s, u"z", 1},
        {TextEncoding::utf32BigEndian, "\0\0\0a\0\0"s, u"a", 1},
        {TextEncoding::ascii, "abc", u"", 0, -10014, "The input stream encoding is unsupported."},
        {TextEncoding::utf16, "\0a"s, u"", 0, -10014, "The input stream encoding is unsupported."},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::PrintToString(row.bytes));
        const Outcome expected{row.units, row.nothings,  row.code,
                               row.text,  row.code == 0, row.units.size()};
        EXPECT_EQ(readAll(row.encoding, row.bytes), expected);
        EXPECT_EQ(readAll(row.encoding, row.bytes, {{1, 0, 0}, Chunks::never, false}), expected);
    }
}

TEST(MZStringStreamReader, AFailedReadKeepsPositionAndGoesOnBehindIt) {
    MZStringStreamReader reader(TextEncoding::utf8,
                                std::make_shared<ChunkedInputStream>("ab\xC3(z"));
    char16_t unit = 0;
    ASSERT_TRUE(reader.getNextCharacter(unit));
    ASSERT_TRUE(MZStringStreamReaderGetNextCharacter(reader, unit));
    EXPECT_EQ(reader.position(), 2U);
    EXPECT_FALSE(reader.getNextCharacter(unit));
    EXPECT_EQ(reader.position(), 2U);
    ASSERT_TRUE(reader.getNextCharacter(unit));
    EXPECT_EQ(unit, u'z');
}

TEST(MZStringStreamReader, TheStreamsErrorPassesThrough) {
    const Outcome outcome = readAll(TextEncoding::utf8, "abcdef", {{2}, 4});
    EXPECT_EQ(outcome.code, -1);
    EXPECT_EQ(outcome.text, "The stream broke.");
    EXPECT_FALSE(outcome.atEnd);
    // Between two blocks, inside a character.
    for (const char* const character : {"é", "電", "😀"}) {
        const Outcome broken = readAll(TextEncoding::utf8, std::string(8191, 'x') + character,
                                       {{Chunks::never}, 8192});
        EXPECT_EQ(broken.units.size(), 8191U) << character;
        EXPECT_EQ(broken.text, "The stream broke.") << character;
    }
}

TEST(MZStringStreamReader, GivesUpAtTheThousandAndFirstEmptyRead) {
    const auto emptyReads = [](std::size_t count) {
        Chunks chunks;
        chunks.sizes.assign(count, 0);
        chunks.sizes.push_back(8192);
        return chunks;
    };
    EXPECT_EQ(readAll(TextEncoding::utf8, "ab", emptyReads(1000)).units, u"ab");
    const auto stream = std::make_shared<ChunkedInputStream>("ab", emptyReads(1001));
    MZStringStreamReader reader(TextEncoding::utf8, stream);
    char16_t unit = 0;
    Error error;
    EXPECT_FALSE(reader.getNextCharacter(unit, &error));
    EXPECT_EQ(stream->calls(), 1001U);
    EXPECT_EQ(error.domain(), MZJSONSerlizationErrorDomain);
    EXPECT_EQ(error.code(), -100014);
    EXPECT_EQ(error.localizedDescription(),
              "The input stream is unreadable and won’t allow additional reads.");
    EXPECT_EQ(error.localizedFailureReason(), "Input stream unreadable");
}

TEST(MZStringStreamReader, PushingBackIsReadAgain) {
    for (const TextEncoding encoding :
         {TextEncoding::utf8, TextEncoding::utf16BigEndian, TextEncoding::utf16LittleEndian,
          TextEncoding::utf32BigEndian, TextEncoding::utf32LittleEndian}) {
        SCOPED_TRACE(static_cast<unsigned>(encoding));
        MZStringStreamReader reader(encoding, std::make_shared<ChunkedInputStream>(""));
        const std::u16string units = u"a\u00E9\u20AC\xD83D\xDE00\xDC00\0"s;
        for (const char16_t unit : std::ranges::reverse_view(units)) {
            reader.pushCharacter(unit);
            EXPECT_EQ(reader.position(), 0U);
        }
        char16_t first = 0;
        ASSERT_TRUE(reader.getNextCharacter(first));
        EXPECT_EQ(reader.position(), 1U);
        reader.pushCharacter(first);
        EXPECT_EQ(reader.position(), 0U);
        EXPECT_EQ(readAll(reader).units, units);
    }
    MZStringStreamReader latin(TextEncoding::isoLatin1, std::make_shared<ChunkedInputStream>(""));
    latin.pushCharacter(u'é');
    ASSERT_EQ(latin.buffered().size(), 1U);
    EXPECT_EQ(latin.buffered()[0], 0xE9);
    latin.pushCharacter(u'電');  // which Latin 1 has not
    EXPECT_EQ(latin.buffered().size(), 1U);
}

TEST(MZStringStreamReader, PushingBackBeyondTheQueueLosesNothing) {
    const std::string text(10000, 'x');
    MZStringStreamReader reader(TextEncoding::utf8,
                                std::make_shared<ChunkedInputStream>(text + "end"));
    char16_t unit = 0;
    ASSERT_TRUE(reader.getNextCharacter(unit));
    const std::string pushed = std::string(20000, 'y') + std::string(1, 'z');
    reader.pushBytes(reinterpret_cast<const std::uint8_t*>(pushed.data()), pushed.size());
    for (int i = 0; i < 9000; ++i) {
        reader.pushCharacter(u'é');
    }
    EXPECT_EQ(readAll(reader).units, std::u16string(9000, u'é') + std::u16string(20000, u'y') +
                                         u"z" + std::u16string(9999, u'x') + u"end");
}

/// Reads with the run interface wherever it can.
std::u16string readByRuns(MZStringStreamReader& reader, std::mt19937_64& random) {
    std::u16string units;
    for (;;) {
        const auto run = reader.buffered();
        std::size_t count = 0;
        while (count < run.size() && run[count] < 0x80 && random() % 50 != 0) {
            units += run[count++];
        }
        reader.consume(count, count);
        char16_t unit = 0;
        if (!reader.getNextCharacter(unit)) {
            return units;
        }
        units += unit;
    }
}

TEST(MZStringStreamReader, ChunksAndPushBacksNeverChangeTheAnswer) {
    std::mt19937_64 random(velto::testing::randomSeed());
    constexpr TextEncoding encodings[] = {
        TextEncoding::utf8, TextEncoding::utf16BigEndian, TextEncoding::utf16LittleEndian,
        TextEncoding::utf32BigEndian, TextEncoding::utf32LittleEndian};
    for (int round = 0; round < 300; ++round) {
        const TextEncoding encoding = encodings[random() % std::size(encodings)];
        // Mostly plain, so that most rounds get beyond the first block.
        std::string bytes;
        const std::size_t length = random() % 30000;
        while (bytes.size() < length) {
            switch (random() % 40) {
                case 0:
                    bytes += static_cast<char>(random() % 256);
                    break;
                case 1:
                case 2:
                    bytes += "\xE2\x82\xAC";
                    break;
                case 3:
                    bytes += "\xF0\x9F\x98\x80";
                    break;
                default:
                    bytes += static_cast<char>(random() % 0x80);
            }
        }
        Chunks chunks{{}, Chunks::never, random() % 2 == 0};
        for (int i = 0; i < 5; ++i) {
            chunks.sizes.push_back(random() % 2 == 0 ? random() % 4 : random() % 10000);
        }
        chunks.sizes.push_back(1 + random() % 100);
        const Outcome whole = readAll(encoding, bytes);
        ASSERT_EQ(readAll(encoding, bytes, chunks), whole);

        MZStringStreamReader reader(encoding, std::make_shared<ChunkedInputStream>(bytes, chunks));
        if (encoding == TextEncoding::utf8) {
            const std::u16string units = readByRuns(reader, random);
            ASSERT_EQ(units, whole.units.substr(0, units.size()));
            ASSERT_EQ(reader.position(), units.size());
        } else {
            // Any number of units back and again.
            std::u16string units;
            char16_t unit = 0;
            while (units.size() < 500 && reader.getNextCharacter(unit)) {
                units += unit;
            }
            const std::size_t back = units.empty() ? 0 : random() % units.size();
            for (std::size_t i = 0; i < back; ++i) {
                reader.pushCharacter(units[units.size() - 1 - i]);
            }
            ASSERT_EQ(reader.position(), units.size() - back);
            std::u16string again;
            while (again.size() < back && reader.getNextCharacter(unit)) {
                again += unit;
            }
            ASSERT_EQ(again, units.substr(units.size() - back));
        }
    }
}

}  // namespace
