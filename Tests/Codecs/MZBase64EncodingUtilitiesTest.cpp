#include <Tests/Support/IsError.h>
#include <Tests/Support/RandomSeed.h>
#include <Tests/Support/ScopedUserDefaults.h>
#include <Tests/Support/TemporaryDirectory.h>
#include <VeltoConnectFoundation/Codecs/MZBase64Coder.h>
#include <VeltoConnectFoundation/Codecs/MZBase64EncodingUtilities.h>
#include <VeltoConnectFoundation/Codecs/MZCompressionUtilities.h>
#include <VeltoConnectFoundation/Platform/UserDefaults.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <string>

namespace {

using velto::Data;
using velto::Dictionary;
using velto::Error;
using velto::testing::IsError;

constexpr std::string_view abc = "900150983cd24fb0d6963f7d28e17f72";

MZBase64EncodingUtilities plainUtilities() {
    auto utilities = MZBase64EncodingUtilities::utilities();
    utilities.setCompressing(false);
    return utilities;
}

TEST(MZBase64EncodingUtilities, HoldsTheChecksumAndOneContent) {
    EXPECT_EQ(plainUtilities().encodedData(Data(std::string_view("abc"))),
              (Dictionary{{"Checksum", abc}, {"Content", "YWJj\n"}}));
    EXPECT_EQ(plainUtilities().encodedData(Data()),
              (Dictionary{{"Checksum", "d41d8cd98f00b204e9800998ecf8427e"}, {"Content", ""}}));

    const auto content =
        MZBase64EncodingUtilities::defaultUtilities().encodedData(Data(std::string_view("abc")));
    ASSERT_TRUE(content);
    EXPECT_EQ(content->size(), 2U);
    EXPECT_EQ((*content)["Checksum"].string(), abc);
    EXPECT_TRUE((*content)["GzipContent"].string().starts_with("H4sI"));
    EXPECT_TRUE((*content)["GzipContent"].string().ends_with("\n"));
}

std::string noise(std::mt19937_64& random, std::size_t length) {
    std::string bytes(length, '\0');
    std::ranges::generate(bytes, [&] { return static_cast<char>(random()); });
    return bytes;
}

TEST(MZBase64EncodingUtilities, PiecesMakeNoDifference) {
    std::mt19937_64 random(velto::testing::randomSeed());
    const velto::testing::TemporaryDirectory folder;
    const MZBase64Coder coder;
    // About the size of a piece, and several; of what shrinks, and what does not.
    for (const std::size_t length : {49151U, 49152U, 49153U, 98304U, 300001U}) {
        for (const std::string& bytes : {noise(random, length), std::string(length, 'x')}) {
            SCOPED_TRACE(length);
            const Data data{std::string_view(bytes)};
            const auto gzipped = MZCompressionUtilities::defaultUtilities().gzipDeflate(data);
            ASSERT_TRUE(gzipped);
            const auto plain = plainUtilities().encodedData(data);
            const auto compressed = MZBase64EncodingUtilities::defaultUtilities().encodedData(data);
            ASSERT_TRUE(plain && compressed);
            EXPECT_TRUE((*plain)["Content"].string() ==
                        coder.encodedBase64ValueWithData(data, 1024)->view());
            EXPECT_TRUE((*compressed)["GzipContent"].string() ==
                        coder.encodedBase64ValueWithData(*gzipped, 1024)->view());
            EXPECT_EQ(plainUtilities().encodedFileAtPath(folder.write("file", bytes)), plain);
            // Lines that end within groups, so that any piece may begin there.
            std::string odd((*compressed)["GzipContent"].string());
            for (std::size_t at = 1; at < odd.size(); at += 61) {
                odd.insert(at, "\r\n");
            }
            const auto back = plainUtilities().decodedData(
                {{"GzipContent", odd}, {"Checksum", (*plain)["Checksum"]}});
            ASSERT_TRUE(back);
            EXPECT_TRUE(*back == data);
        }
    }
}

TEST(MZBase64EncodingUtilities, TheTextsErrorComesBeforeTheBlocks) {
    std::mt19937_64 random(velto::testing::randomSeed());
    const auto text = MZBase64Coder::coder().encodedBase64ValueWithData(
        Data(std::string_view(noise(random, 300001))), 1024);
    ASSERT_TRUE(text);
    struct Row {
        std::string end;
        std::string_view domain;
        std::int64_t code;
    };
    const Row rows[] = {
        {"", "MZCompressionUtiltitiesErrorDomain", -3},
        {"!", "MZBase64EncodingErrorDomain", -17001},
        {"=!", "MZCompressionUtiltitiesErrorDomain", -3},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.end);
        // No "=" of its own ends the text.
        const std::string content(text->view().substr(0, 390000));
        Error error;
        EXPECT_FALSE(plainUtilities().decodedData({{"GzipContent", content + row.end}}, &error));
        EXPECT_THAT(error, IsError(row.domain, row.code));
    }
}

TEST(MZBase64EncodingUtilities, ChecksWhatItReads) {
    const velto::testing::ScopedUserDefaults defaults;
    velto::UserDefaults::shared().setArguments({{MZInflatedSizeLimit, 1000}});
    const auto large = MZBase64EncodingUtilities::defaultUtilities().encodedData(
        Data(std::string_view(std::string(1001, 'x'))));
    ASSERT_TRUE(large);
    struct Row {
        const char* name;
        Dictionary content;
        std::string_view bytes;
        std::string_view domain;
        std::int64_t code;
        std::string description;
    };
    constexpr std::string_view base64 = "MZBase64EncodingErrorDomain";
    constexpr std::string_view gzip = "MZCompressionUtiltitiesErrorDomain";
    const std::string neither =
        "The content dictionary has no text under “GzipContent” or “Content”.";
    const std::string wrong =
        "Actual checksum (900150983cd24fb0d6963f7d28e17f72) did not match expected checksum (0).";
    const std::string header = "Unable to perform compression action: incorrect header check (-3)";
    const std::string memory = "Unable to perform compression action: General memory error (-4)";
    const std::string blank = "Illegal base64 input character: 0x20 ( )";
    const Dictionary capitals{{"Checksum", "900150983CD24FB0D6963F7D28E17F72"},
                              {"Content", "YWJj"}};
    const Row rows[] = {
        {"checksum in capitals", capitals, "abc", {}, 0, {}},
        {"no checksum", {{"Content", "YWJj"}}, "abc", {}, 0, {}},
        {"wrong checksum", {{"Checksum", "0"}, {"Content", "YWJj"}}, {}, base64, -17001, wrong},
        {"not base64", {{"Content", "YW Jj"}}, {}, base64, -17001, blank},
        {"gzip first", {{"Content", "YWJj"}, {"GzipContent", "YWJj"}}, {}, gzip, -3, header},
        {"above the limit", *large, {}, gzip, -4, memory},
        {"neither content", {{"Checksum", abc}}, {}, base64, -17003, neither},
        {"nothing", {}, {}, base64, -17003, neither},
        {"content of another kind", {{"Content", 5}}, {}, base64, -17003, neither},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Error error;
        const auto data =
            MZBase64EncodingUtilities::defaultUtilities().decodedData(row.content, &error);
        ASSERT_EQ(data.has_value(), row.domain.empty());
        if (data) {
            EXPECT_EQ(data->view(), row.bytes);
        } else {
            EXPECT_THAT(error, IsError(row.domain, row.code));
            EXPECT_EQ(error.localizedDescription(), row.description);
        }
    }
}

TEST(MZBase64EncodingUtilities, TheTextIsInItsEncoding) {
    auto utilities = plainUtilities();
    EXPECT_EQ(utilities.encoding(), MZBase64EncodingUtilities::defaultEncoding());
    utilities.setEncoding(velto::TextEncoding::utf16LittleEndian);
    // "TA==" and its line end are no whole number of units; "TAA=" is three bytes, less so.
    Error error;
    EXPECT_FALSE(utilities.encodedData(Data(std::string_view("\x4c")), &error));
    EXPECT_THAT(error, IsError(velto::GeneralErrorDomain, EILSEQ));
    utilities.setEncoding(velto::TextEncoding::isoLatin1);
    const auto content = utilities.encodedData(Data(std::string_view("abc")));
    ASSERT_TRUE(content);
    EXPECT_EQ((*content)["Content"].string(), "YWJj\n");
    EXPECT_EQ(utilities.decodedData(*content)->view(), "abc");
    EXPECT_FALSE(utilities.decodedData({{"Content", "€"}}, &error));
    EXPECT_THAT(error, IsError(velto::GeneralErrorDomain, EILSEQ));
}

TEST(MZBase64EncodingUtilities, EncodesFilesInOrderUpToTheFirstFailure) {
    const velto::testing::TemporaryDirectory folder;
    const std::string first = folder.write("first", "abc");
    const std::string second = folder.write("second", "");
    const auto utilities = plainUtilities();
    EXPECT_EQ(utilities.encodedFileAtPath(first),
              utilities.encodedData(Data(std::string_view("abc"))));
    EXPECT_EQ(utilities.encodedFilesAtPaths({first, second}),
              utilities.encodeDatas({Data(std::string_view("abc")), Data()}));
    EXPECT_EQ(utilities.encodeDatas({})->size(), 0U);
    Error error;
    EXPECT_FALSE(
        utilities.encodedFilesAtPaths({first, folder.at("missing"), folder.path()}, &error));
    EXPECT_THAT(error, IsError(velto::POSIXErrorDomain, ENOENT));
    EXPECT_FALSE(utilities.encodedFileAtPath(folder.path().string(), &error));
    EXPECT_THAT(error, IsError(velto::POSIXErrorDomain, EISDIR));
}

}  // namespace
