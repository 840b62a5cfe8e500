#include <Tests/Support/IsError.h>
#include <Tests/Support/RandomSeed.h>
#include <VeltoConnectFoundation/Codecs/MZBase64Coder.h>
#include <VeltoConnectFoundation/Platform/Base64Blocks.h>
#include <VeltoConnectFoundation/Platform/Exception.h>

#include <glib.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using velto::Data;
using velto::Error;
using velto::testing::IsError;

constexpr std::uint32_t onOneLine = MZBase64Coder::defaultFlags & ~MZBase64EndsWithNewline;

std::string encoded(std::string_view bytes,
                    std::size_t interval = 57,
                    std::uint32_t flags = MZBase64Coder::defaultFlags) {
    MZBase64Coder coder;
    coder.setFlags(flags);
    const auto text = coder.encodedBase64ValueWithData(Data(bytes), interval);
    return text ? std::string(text->view()) : "failed";
}

std::string randomBytes(std::mt19937_64& random, std::size_t length) {
    std::string bytes(length, '\0');
    std::ranges::generate(bytes, [&] { return static_cast<char>(random()); });
    return bytes;
}

struct Way {
    const char* name;
    const velto::detail::Base64Blocks* blocks;
};

/// All that this processor has, not only the one that it takes.
std::vector<Way> fastWays() {
    std::vector<Way> ways{{"AVX2", velto::detail::avx2Base64Blocks()},
                          {"AVX-512", velto::detail::avx512Base64Blocks()}};
    std::erase_if(ways, [](const Way& way) { return way.blocks == nullptr; });
    return ways;
}

TEST(MZBase64Coder, BreaksLinesAfterWholeGroups) {
    const auto digits = [](std::size_t count) { return std::string(count, 'A'); };
    struct Row {
        std::size_t bytes;
        std::size_t interval;
        std::uint32_t flags;
        std::string text;
    };
    const Row rows[] = {
        {0, 57, MZBase64Coder::defaultFlags, ""},
        {1, 57, MZBase64Coder::defaultFlags, "AA==\n"},
        {2, 57, onOneLine, "AAA="},
        {57, 57, MZBase64Coder::defaultFlags, digits(76) + "\n"},
        {58, 57, MZBase64Coder::defaultFlags, digits(76) + "\nAA==\n"},
        // A line's own end does not depend on the flag.
        {57, 57, onOneLine, digits(76) + "\n"},
        {58, 57, onOneLine, digits(76) + "\nAA=="},
        {6, 1, MZBase64Coder::defaultFlags, "AAAA\nAAAA\n"},
        {7, 2, onOneLine, "AAAAAAAA\nAA=="},
        {12, 6, onOneLine, "AAAAAAAA\nAAAAAAAA\n"},
        {3074, 1024, MZBase64Coder::defaultFlags, digits(4096) + "\nAAA=\n"},
        {300, SIZE_MAX, MZBase64Coder::defaultFlags, digits(400) + "\n"},
        {300, SIZE_MAX - 1, onOneLine, digits(400)},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::to_string(row.bytes) + " by " + std::to_string(row.interval));
        EXPECT_EQ(encoded(std::string(row.bytes, '\0'), row.interval, row.flags), row.text);
    }
    EXPECT_EQ(MZBase64Coder::coder()
                  .encodedBase64ValueWithData(Data(std::string_view("any carnal pleas")))
                  ->view(),
              "YW55IGNhcm5hbCBwbGVhcw==\n");
    try {
        encoded("x", 0);
        ADD_FAILURE() << "nothing was raised";
    } catch (const velto::Exception& exception) {
        EXPECT_EQ(exception.userInfo()[velto::AssertionFileKey].string(), "MZBase64Coder.m");
    }
}

TEST(MZBase64Coder, DecodesWithTheStatedTolerance) {
    constexpr std::uint32_t plain = MZBase64Coder::defaultFlags;
    struct Row {
        std::string_view text;
        std::uint32_t flags;
        std::string_view bytes;  ///< When it can be decoded.
        std::string_view failure;
    };
    using namespace std::string_view_literals;
    const Row rows[] = {
        {"", plain, "", ""},
        {"Zm9v", plain, "foo", ""},
        {"Zm9\r\nvYg=\n=", plain, "foob", ""},
        {"Zg==Zm9v***", plain, "f", ""},
        {"=Zm9v", plain, "", ""},
        {"Zg", plain, "f", ""},
        {"Z", plain, "", ""},
        {"Zm9vY", plain, "foo", ""},
        {"Zm9vYm", plain, "foob", ""},
        {"Zm9vYmF", plain, "fooba", ""},
        {"Zm 9v", plain, "", "Illegal base64 input character: 0x20 ( )"},
        {"Zm 9v", plain | 0x10, "foo", ""},
        {"Zm\t9v", plain, "", "Illegal base64 input character: 0x09 (\t)"},
        {"Zm\t9v", plain | 0x8, "foo", ""},
        {"Zm\n9v", 0x4, "", "Illegal base64 input character: 0x0a (\n)"},
        {"Zm\r9v", 0x2, "", "Illegal base64 input character: 0x0d (\r)"},
        {"Zm9v-", plain | 0x18, "", "Illegal base64 input character: 0x2d (-)"},
        {"Zm\xff", plain, "", "Illegal base64 input character: 0xff (ÿ)"},
        {"Zm\0"sv, plain, "", "Illegal base64 input character: 0x00 (\0)"sv},
        {"\xff Z\tm\r9\n-\0_v"sv, 0x8000, "foo", ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        MZBase64Coder coder;
        EXPECT_EQ(coder.flags(), 0x10006U);
        coder.setFlags(row.flags);
        // The same behind what the fast way takes.
        for (const std::size_t before : {0U, 15U, 48U}) {
            const std::string text = encoded(std::string(before, 'b'), SIZE_MAX, onOneLine);
            Error error;
            const auto bytes =
                coder.decodedValueWithBase64Data(text + std::string(row.text), &error);
            ASSERT_EQ(bytes.has_value(), row.failure.empty());
            if (bytes) {
                EXPECT_EQ(bytes->view(), std::string(before, 'b') + std::string(row.bytes));
            } else {
                EXPECT_THAT(error, IsError("MZBase64EncodingErrorDomain", -17001));
                EXPECT_EQ(error.localizedDescription(), row.failure);
                EXPECT_EQ(error.localizedFailureReason(), row.failure);
            }
        }
    }
}

TEST(MZBase64Coder, EachCharacterIsADigitInItsPlaceOrAnError) {
    std::vector<Way> ways = fastWays();
    ways.push_back({"plain", &velto::detail::plainBase64Blocks()});
    // At each place of the longest step, so that a wrong set or offset in one lane is seen.
    for (std::size_t place = 0; place < 320; ++place) {
        for (int code = 0; code < 256; ++code) {
            const char character = static_cast<char>(code);
            std::string text(320, 'A');
            text[place] = character;
            const std::size_t digit = velto::detail::base64Alphabet.find(character);
            std::vector<std::uint8_t> bytes(text.size() / 4 * 3);
            for (const Way& way : ways) {
                const std::size_t taken =
                    way.blocks->decode(text.data(), text.size(), false, bytes.data()).characters;
                ASSERT_EQ(taken, digit == std::string_view::npos ? place / 4 * 4 : text.size())
                    << way.name;
                if (taken == text.size()) {
                    const auto* group = &bytes[place / 4 * 3];
                    const std::uint32_t bits = static_cast<std::uint32_t>(group[0]) << 16 |
                                               static_cast<std::uint32_t>(group[1]) << 8 | group[2];
                    ASSERT_EQ(bits, digit << (18 - place % 4 * 6)) << way.name << ' ' << code;
                }
            }
        }
    }
}

/// Lines of one length, or a few and then lines of another, with now and then something wrong.
std::vector<char> linesOfText(std::mt19937_64& random) {
    std::string text;
    for (std::uint64_t parts = 1 + random() % 2; parts != 0; --parts) {
        text +=
            encoded(randomBytes(random, random() % 600 * 3), (1 + random() % 60) * 3, onOneLine);
    }
    if (const std::size_t at = random() % (text.size() + 1); at != text.size()) {
        switch (random() % 6) {
            case 0:
                text[at] = static_cast<char>(random());
                break;
            case 1:
                text.insert(at, 1, '\n');
                break;
            case 2:
                text.erase(at, 1);
                break;
            default:
                break;
        }
    }
    return {text.begin(), text.end()};
}

TEST(MZBase64Coder, TheFastWaysGiveWhatThePlainOneGives) {
    std::mt19937_64 random(velto::testing::randomSeed());
    const auto& plain = velto::detail::plainBase64Blocks();
    const std::vector<Way> ways = fastWays();
    for (int round = 0; round < 20000; ++round) {
        // Blocks of exactly their size, so that a step beyond them is seen.
        const std::string input = randomBytes(random, random() % 150 * 3);
        const std::vector<std::uint8_t> bytes(input.begin(), input.end());
        velto::detail::Base64Lines lines;
        if (random() % 4 != 0) {
            lines = {(1 + random() % 60) * 3, random() % 2 ? "\n" : "\r\n"};
        }
        std::vector<char> expected(velto::detail::base64Length(bytes.size(), lines));
        plain.encode(bytes.data(), bytes.size(), lines, expected.data());

        const std::vector<char> text = linesOfText(random);
        const bool skips = random() % 8 != 0;
        std::vector<std::uint8_t> expectedBytes(text.size() / 4 * 3);
        const auto taken = plain.decode(text.data(), text.size(), skips, expectedBytes.data());
        expectedBytes.resize(taken.bytes);

        for (const Way& way : ways) {
            SCOPED_TRACE(way.name);
            std::vector<char> other(expected.size());
            way.blocks->encode(bytes.data(), bytes.size(), lines, other.data());
            ASSERT_EQ(other, expected);

            std::vector<std::uint8_t> decoded(text.size() / 4 * 3);
            const auto others = way.blocks->decode(text.data(), text.size(), skips, decoded.data());
            ASSERT_EQ(others.characters, taken.characters);
            decoded.resize(others.bytes);
            ASSERT_EQ(decoded, expectedBytes);
        }
    }
}

TEST(MZBase64Coder, AgreesWithOtherImplementations) {
    std::mt19937_64 random(velto::testing::randomSeed());
    MZBase64Coder coder;
    coder.setFlags(onOneLine);
    for (int round = 0; round < 100000; ++round) {
        const std::string bytes = randomBytes(random, random() % 200);
        const std::string text = encoded(bytes, SIZE_MAX, onOneLine);
        const auto* unsignedBytes = reinterpret_cast<const unsigned char*>(bytes.data());
        std::string expected((bytes.size() + 2) / 3 * 4, '\0');
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(expected.data()), unsignedBytes,
                        static_cast<int>(bytes.size()));
        ASSERT_EQ(text, expected);

        // With noise, as tolerant as the other reader; its "=" only ends the text at the end.
        std::string noisy;
        for (const char digit : text) {
            for (; random() % 8 == 0; noisy += "\n\r\t -_\x80\xff"[random() % 8]) {
            }
            noisy += digit;
        }
        coder.setFlags(MZBase64AcceptsAll);
        const auto decoded = coder.decodedValueWithBase64Data(noisy);
        ASSERT_TRUE(decoded);
        gsize length = 0;
        guchar* other = g_base64_decode(noisy.c_str(), &length);
        ASSERT_EQ(decoded->view(), std::string_view(reinterpret_cast<char*>(other), length));
        g_free(other);
        ASSERT_EQ(decoded->view(), bytes);
    }
}

}  // namespace
