#include <VeltoConnectFoundation/DeliveryTool/NSDataToStringFilter.h>
#include <VeltoConnectFoundation/Platform/Exception.h>

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

using ::testing::ElementsAre;
using velto::TextEncoding;

using Pieces = std::vector<std::optional<std::string>>;

class Receiver final : public NSDataToStringFilterDelegate {
public:
    void filterDidFilterString(NSDataToStringFilter&,
                               std::optional<std::string_view> string) override {
        pieces.push_back(string ? std::optional<std::string>(*string) : std::nullopt);
        if (string == "throw\n") {
            throw velto::Exception(velto::GenericException, "thrown");
        }
    }
    Pieces pieces;
};

TEST(NSDataToStringFilter, CutsAlikeHoweverTheBytesCome) {
    const struct {
        const char* name;
        std::string bytes;
        Pieces pieces;
        std::string unused;
        char separator = '\n';
        TextEncoding encoding = TextEncoding::utf8;
    } rows[] = {
        {"nothing", "", {}, ""},
        {"rest", "a\nb", {"a\n"}, "b"},
        {"empty lines", "\n\n", {"\n", "\n"}, ""},
        {"carriage return stays", "a\r\nb\r\n", {"a\r\n", "b\r\n"}, ""},
        {"zero bytes stay", std::string("a\0b\nc", 5), {std::string("a\0b\n", 4)}, "c"},
        {"beyond ASCII", "é…\n😀\n–", {"é…\n", "😀\n"}, "–"},
        {"bad lines", "a\nb\xFF\nc\n\xC3\n", {"a\n", std::nullopt, "c\n", std::nullopt}, ""},
        {"bad rest", "\xC3\x28\na\n\xED\xA0\x80", {std::nullopt, "a\n"}, "\xED\xA0\x80"},
        {"other separator", "a,b\n,c", {"a,", "b\n,"}, "c", ','},
        {"zero as separator",
         std::string("a\0b\0c", 5),
         {std::string("a\0", 2), std::string("b\0", 2)},
         "c",
         '\0'},
        {"separator inside a character", "\xC3\xA9\xA9", {"\xC3\xA9", std::nullopt}, "", '\xA9'},
        {"Latin-1", "\xE9\n\xFF\n", {"é\n", "ÿ\n"}, "", '\n', TextEncoding::isoLatin1},
        {"ASCII", "a\n\xE9\n", {"a\n", std::nullopt}, "", '\n', TextEncoding::ascii},
    };
    for (const auto& row : rows) {
        for (std::size_t size = 1; size <= row.bytes.size() + 1; ++size) {
            SCOPED_TRACE(std::string(row.name) + " in blocks of " + std::to_string(size));
            const auto receiver = std::make_shared<Receiver>();
            NSDataToStringFilter filter(static_cast<unsigned char>(row.separator), receiver);
            filter.setStringEncoding(row.encoding);
            for (std::size_t at = 0; at < row.bytes.size(); at += size) {
                filter.appendData(std::string_view(row.bytes).substr(at, size));
            }
            EXPECT_EQ(receiver->pieces, row.pieces);
            EXPECT_EQ(filter.unusedData().view(), row.unused);
        }
    }
}

TEST(NSDataToStringFilter, ALongLineInManyBlocksIsOnePiece) {
    const auto receiver = std::make_shared<Receiver>();
    NSDataToStringFilter filter(receiver);
    const std::string block(4096, 'x');
    std::string line;
    for (int i = 0; i < 5000; ++i) {
        filter.appendData(block);
        line += block;
    }
    EXPECT_TRUE(receiver->pieces.empty());
    filter.appendData("\nrest");
    EXPECT_THAT(receiver->pieces, ElementsAre(line + "\n"));
    EXPECT_EQ(filter.unusedData().view(), "rest");
}

TEST(NSDataToStringFilter, AThrowLosesNoPiece) {
    const auto receiver = std::make_shared<Receiver>();
    NSDataToStringFilter filter(receiver);
    filter.appendData("thr");
    EXPECT_THROW(filter.appendData("ow\na\nthrow\nb\nc"), velto::Exception);
    EXPECT_THROW(filter.appendData("d\n"), velto::Exception);
    EXPECT_THAT(receiver->pieces, ElementsAre("throw\n", "a\n", "throw\n"));
    filter.appendData("e");
    EXPECT_THAT(receiver->pieces, ElementsAre("throw\n", "a\n", "throw\n", "b\n", "cd\n"));
    EXPECT_EQ(filter.unusedData().view(), "e");
}

TEST(NSDataToStringFilter, TheDelegateIsRequiredButNotKept) {
    try {
        NSDataToStringFilter filter{std::weak_ptr<NSDataToStringFilterDelegate>()};
        ADD_FAILURE() << "no exception";
    } catch (const velto::Exception& exception) {
        EXPECT_EQ(exception.name(), velto::InvalidArgumentException);
        EXPECT_EQ(exception.reason(), "Delegate does not respond to filter:didFilterString:");
    }
    auto receiver = std::make_shared<Receiver>();
    NSDataToStringFilter filter(receiver);
    receiver.reset();
    filter.appendData("a\nb");
    EXPECT_EQ(filter.unusedData().view(), "b");
}

}  // namespace
